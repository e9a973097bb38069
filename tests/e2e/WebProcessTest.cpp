// An installed Orvane loads its web-process extension from beside itself,
// and only from a folder no other user can change.
#include "E2ETest.h"

#include <sys/stat.h>

namespace orvane::test {

using WebProcessTest = E2ETest;

TEST_F(WebProcessTest, AnInstalledOrvaneLoadsItsExtensionOnlyFromAPrivateFolder) {
    std::string prefix = orvane.folder() + "/prefix";
    auto installed = orvane.run({ "cmake", "--install", ORVANE_BUILD_DIR, "--prefix", prefix }, 60s);
    ASSERT_TRUE(installed && installed->status == 0) << (installed ? installed->output : "cmake did not run");
    std::string extensions = prefix + "/" + ORVANE_WEBEXT_INSTALL_DIR;
    ASSERT_TRUE(g_file_test((extensions + "/liborvane_webext.so").c_str(), G_FILE_TEST_IS_REGULAR));
    orvane.setBinary(prefix + "/bin/orvane");
    // Whether the pages of the next run carry the extension's stamp.
    auto stampOnNextStart = [&](int run) -> std::string {
        if (!startOrvane("/notify/index.html?who=gmail")
            || (run == 1 && !orvane.activateAction("add-account")) || !waitForEvents("gmail", "loaded", run))
            return "no page";
        runInPage("gmail", "report('stamp', typeof window.__orvanePage)");
        if (!waitForEvents("gmail", "stamp", run))
            return "no answer";
        orvane.stop();
        return events("gmail", "stamp").back().data.get<std::string>();
    };

    // Group-writable: refused, so pages carry no stamp (the build tree's
    // folder, private, is no fallback).
    ASSERT_EQ(chmod(extensions.c_str(), 0775), 0);
    EXPECT_EQ(stampOnNextStart(1), "undefined");
    EXPECT_NE(orvane.log().find("Running without the web-process extension"), std::string::npos);
    ASSERT_EQ(chmod(extensions.c_str(), 0755), 0);
    EXPECT_EQ(stampOnNextStart(2), "string");
}

} // namespace orvane::test
