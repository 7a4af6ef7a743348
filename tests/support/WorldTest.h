#pragma once

#include <gtest/gtest.h> // IWYU pragma: export

#include "PrivateWorld.h" // IWYU pragma: export

namespace support {

/// A test that finds the private world in its first state: see resetWorld().
class WorldTest : public testing::Test {
protected:
    void SetUp() override { resetWorld(); }
};

} // namespace support
