// Test main for tests that use GTK and WebKit: needs a display (Xvfb in the
// README's test command).
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

int main(int argc, char** argv) {
    orvane::test::pinEnvironment();
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && !gtk_init_check()) {
        fprintf(stderr, "These tests need a display: run them through tools/test.sh (Xvfb).\n");
        return 1;
    }
    return RUN_ALL_TESTS();
}
