// Test main for pure-logic tests: no display needed.
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    orvane::test::pinEnvironment();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
