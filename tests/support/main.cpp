#include <gtest/gtest.h>

#include "PrivateWorld.h"

// The names of the tests are asked for while they are built, by whoever builds them.
static bool onlyListsTests()
{
    return testing::GTEST_FLAG(list_tests);
}

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!onlyListsTests())
        support::enterPrivateWorld();
    return RUN_ALL_TESTS();
}
