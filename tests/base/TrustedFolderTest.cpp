// Which folders code may be loaded from (the web-process extension's): only
// ones that no other user can change.
#include "TrustedFolder.h"

#include "Files.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace orvane {
namespace {

TEST(TrustedFolderTest, OnlyFoldersNoOtherUserCanChangeAreTrusted) {
    struct Case {
        const char* name;
        mode_t above;       // the folder above it
        mode_t folder;
        mode_t module;      // of the file in it
        bool trusted;
    };
    const Case cases[] = {
        { "private", 0755, 0755, 0644, true },
        { "group may write the folder", 0755, 0775, 0644, false },
        { "others may write the folder", 0755, 0757, 0644, false },
        { "others may write the module", 0755, 0755, 0646, false },
        { "group may write the module", 0755, 0755, 0664, false },
        { "others may rename the folder", 0777, 0755, 0644, false },
        { "a sticky folder above, as /tmp", 01777, 0755, 0644, true },
    };
    for (const auto& c : cases) {
        std::string above = test::makeTempFolder("above");
        std::string folder = above + "/web-extensions";
        std::string module = folder + "/liborvane_webext.so";
        ASSERT_TRUE(Files::makeFolder(folder));
        ASSERT_TRUE(Files::replaceAtomically(module, "module"));
        ASSERT_EQ(chmod(module.c_str(), c.module), 0);
        ASSERT_EQ(chmod(folder.c_str(), c.folder), 0);
        ASSERT_EQ(chmod(above.c_str(), c.above), 0);
        EXPECT_EQ(!TrustedFolder::problem(folder), c.trusted) << c.name;
        // Through a symbolic link, the folder it points at counts.
        std::string link = test::makeTempFolder("link") + "/to";
        ASSERT_EQ(symlink(folder.c_str(), link.c_str()), 0);
        EXPECT_EQ(!TrustedFolder::problem(link), c.trusted) << c.name << " (linked)";
        chmod(above.c_str(), 0700);
    }

    // A link inside, a missing folder and a file are refused.
    std::string folder = test::makeTempFolder("inside");
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    EXPECT_FALSE(TrustedFolder::problem(folder));
    ASSERT_EQ(symlink("/tmp", (folder + "/liborvane_webext.so").c_str()), 0);
    EXPECT_TRUE(TrustedFolder::problem(folder));
    EXPECT_TRUE(TrustedFolder::problem(folder + "/missing"));
    std::string file = test::makeTempFolder("file") + "/module.so";
    ASSERT_TRUE(Files::replaceAtomically(file, "module"));
    EXPECT_TRUE(TrustedFolder::problem(file));

    // Another user's folder or module, when the test may hand one over.
    if (geteuid() != 0)
        return;
    constexpr uid_t kNobody = 65534;
    std::string theirs = test::makeTempFolder("theirs");
    ASSERT_EQ(chmod(theirs.c_str(), 0755), 0);
    ASSERT_TRUE(Files::replaceAtomically(theirs + "/liborvane_webext.so", "module"));
    ASSERT_EQ(chown((theirs + "/liborvane_webext.so").c_str(), kNobody, kNobody), 0);
    EXPECT_TRUE(TrustedFolder::problem(theirs));
    ASSERT_EQ(chown((theirs + "/liborvane_webext.so").c_str(), 0, 0), 0);
    EXPECT_FALSE(TrustedFolder::problem(theirs));
    ASSERT_EQ(chown(theirs.c_str(), kNobody, kNobody), 0);
    EXPECT_TRUE(TrustedFolder::problem(theirs));
}

} // namespace
} // namespace orvane
