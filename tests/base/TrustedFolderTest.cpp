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
    // The modes of the folder above, the folder and the module in it.
    const std::tuple<const char*, mode_t, mode_t, mode_t, bool> cases[] = {
        { "private", 0755, 0755, 0644, true },
        { "group may write the folder", 0755, 0775, 0644, false },
        { "others may write the folder", 0755, 0757, 0644, false },
        { "others may write the module", 0755, 0755, 0646, false },
        { "group may write the module", 0755, 0755, 0664, false },
        { "others may rename the folder", 0777, 0755, 0644, false },
        { "a sticky folder above, as /tmp", 01777, 0755, 0644, true },
    };
    for (const auto& [name, above, folder, module, trusted] : cases) {
        const std::string top = test::makeTempFolder("above");
        const std::string file = top + "/ext/liborvane_webext.so";
        ASSERT_TRUE(Files::makeFolder(top + "/ext") && Files::replaceAtomically(file, "module"));
        ASSERT_EQ(chmod(file.c_str(), module), 0);
        ASSERT_EQ(chmod((top + "/ext").c_str(), folder) | chmod(top.c_str(), above), 0);
        EXPECT_EQ(!TrustedFolder::problem(top + "/ext"), trusted) << name;
        // Through a symbolic link, the folder it points at counts.
        std::string link = test::makeTempFolder("link") + "/to";
        ASSERT_EQ(symlink((top + "/ext").c_str(), link.c_str()), 0);
        EXPECT_EQ(!TrustedFolder::problem(link), trusted) << name << " (linked)";
        chmod(top.c_str(), 0700);
    }

    // A link inside, a missing folder and a file are refused.
    std::string folder = test::makeTempFolder("inside");
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    ASSERT_EQ(symlink("/tmp", (folder + "/liborvane_webext.so").c_str()), 0);
    EXPECT_TRUE(TrustedFolder::problem(folder));
    EXPECT_TRUE(TrustedFolder::problem(folder + "/missing"));
    ASSERT_TRUE(Files::replaceAtomically(folder + "/module.so", "module"));
    EXPECT_TRUE(TrustedFolder::problem(folder + "/module.so"));

    // Another user's folder or module, when the test may hand one over.
    if (geteuid() != 0)
        return;
    const std::string theirs = test::makeTempFolder("theirs");
    const std::string module = theirs + "/liborvane_webext.so";
    ASSERT_EQ(chmod(theirs.c_str(), 0755), 0);
    ASSERT_TRUE(Files::replaceAtomically(module, "module"));
    ASSERT_EQ(chown(module.c_str(), 65534, 65534), 0);
    EXPECT_TRUE(TrustedFolder::problem(theirs));
    ASSERT_EQ(chown(module.c_str(), 0, 0) | chown(theirs.c_str(), 65534, 65534), 0);
    EXPECT_TRUE(TrustedFolder::problem(theirs));
}

} // namespace
} // namespace orvane
