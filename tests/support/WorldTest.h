#pragma once

#include <gtest/gtest.h>

#include "PrivateWorld.h"

namespace support {

/// A test that finds the private world in its first state: see resetWorld().
class WorldTest : public testing::Test {
protected:
    void SetUp() override { resetWorld(); }
};

} // namespace support
