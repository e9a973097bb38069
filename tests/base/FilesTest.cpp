// The files Orvane makes and the folders it trusts: downloads and saved
// images (names, folder, decoding, how many), and where code may be loaded from.
#include "DownloadGate.h"
#include "DownloadsFolder.h"
#include "FileNames.h"
#include "Files.h"
#include "ImageBytes.h"
#include "PrintGate.h"
#include "TrustedFolder.h"
#include "UniqueFile.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>
#include <glib.h>
#include <glib/gstdio.h>

#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace orvane {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

// That a sanitized name is one plain, valid name within its bound, without control or bidirectional
// characters, dots or spaces at its ends, and that numbering keeps the number and extension, is
// fuzz/FileNamesFuzzer's. Here: which name is kept of a path, what is never decoded, and what is never
// overwritten, followed or made outside the folder.
TEST(UniqueFileTest, NumberingNeverOverwritesOrFollowsLinksAndStaysInTheFolderAlsoInParallel) {
    std::string root = test::makeTempFolder("unique");
    std::string folder = root + "/Downloads";
    ASSERT_TRUE(Files::makeFolder(folder));
    const std::pair<std::string, std::string> sequence[] = {
        { "report.pdf", "report.pdf" }, { "report.pdf", "report 1.pdf" }, { "report.pdf", "report 2.pdf" },
        { "archive.tar.gz", "archive.tar.gz" }, { "archive.tar.gz", "archive.tar 1.gz" },
        { "", "download" }, { "..", "download 1" }, { "a/b/", "download 2" },
        { "../../.bashrc", "bashrc" }, { "..\\..\\Windows\\win.ini", "win.ini" },
        { "%2e%2e%2f", "%2e%2e%2f" }, // never decoded: only a name
        { "Grüße.pdf", "Grüße.pdf" },
    };
    for (const auto& [suggested, name] : sequence) {
        auto file = UniqueFile::create(folder, suggested, "download");
        EXPECT_EQ(file ? file->path() : "<none>", folder + "/" + name) << suggested;
    }
    EXPECT_EQ(Files::names(root), std::vector<std::string> { "Downloads" })
        << "a file was made outside the folder";

    // Too long: cut on a character boundary, keeping a short extension.
    EXPECT_EQ(FileNames::sanitized(std::string(250, 'w') + "éé.txt", "x"), std::string(250, 'w') + ".txt");
    EXPECT_EQ(FileNames::sanitized("a." + std::string(300, 'b'), "x").size(), 255u) << "a long extension";

    // A planted link (out of the folder, or nowhere) or a folder takes the name.
    std::string outside = root + "/victim";
    ASSERT_TRUE(g_file_set_contents(outside.c_str(), "precious", -1, nullptr));
    ASSERT_EQ(symlink(outside.c_str(), (folder + "/photo.png").c_str()), 0);
    ASSERT_EQ(symlink((root + "/nowhere").c_str(), (folder + "/photo 1.png").c_str()), 0);
    ASSERT_EQ(g_mkdir((folder + "/photo 2.png").c_str(), 0700), 0);
    auto file = UniqueFile::create(folder, "photo.png", "image");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->path(), folder + "/photo 3.png");
    EXPECT_TRUE(file->write("new bytes"));
    EXPECT_EQ(Files::read(outside, 100), "precious");
    EXPECT_FALSE(Files::exists(root + "/nowhere"));

    // A name whose partial-download sibling exists is taken too; only the
    // untouched file that was made is ever removed.
    ASSERT_EQ(symlink(outside.c_str(), (folder + "/movie.mp4.part").c_str()), 0);
    auto beside = UniqueFile::create(folder, "movie.mp4", "download", ".part");
    ASSERT_TRUE(beside);
    EXPECT_EQ(beside->path(), folder + "/movie 1.mp4");
    beside->close();
    ASSERT_TRUE(g_file_set_contents(beside->path().c_str(), "written", -1, nullptr));
    EXPECT_FALSE(UniqueFile::removeIfUntouched(beside->identity()));
    EXPECT_TRUE(Files::exists(beside->path()));
    auto untouched = UniqueFile::create(folder, "movie.mp4", "download");
    untouched->close();
    EXPECT_TRUE(UniqueFile::removeIfUntouched(untouched->identity()));
    EXPECT_FALSE(Files::exists(untouched->path()));

    EXPECT_FALSE(UniqueFile::create(root + "/missing", "a.txt", "download")) << "no folder, no file";

    // Parallel saves of one name each get their own file.
    folder = test::makeTempFolder("parallel");
    std::vector<std::string> paths(100);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < paths.size(); ++i) {
        threads.emplace_back([&, i] {
            auto file = UniqueFile::create(folder, "report.pdf", "download");
            if (file && file->write(std::to_string(i)))
                paths[i] = file->path();
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(Files::names(folder).size(), paths.size());
    for (size_t i = 0; i < paths.size(); ++i)
        EXPECT_EQ(Files::read(paths[i], 100).value_or(""), std::to_string(i)) << "save " << i;
}

// GLib reads user-dirs.dirs; a change seen at the next download and a Downloads path that is not a folder
// are PageRequestsWebTest's (tests/web/DownloadsWebTest). Here the fallback, made on first use. GLib
// keeps HOME and XDG_CONFIG_HOME from its first look, so the test uses the ones the test environment set.
TEST(DownloadsFolderTest, WithoutUserDirsHomeDownloadsIsMadeOnFirstUse) {
    std::string home = g_get_home_dir();
    g_remove((std::string(g_get_user_config_dir()) + "/user-dirs.dirs").c_str());
    EXPECT_EQ(DownloadsFolder::path().value_or(""), home + "/Downloads");
    EXPECT_TRUE(g_file_test((home + "/Downloads").c_str(), G_FILE_TEST_IS_DIR));
}

// That any bytes come back from a base64 data: address, and that one gives some bytes or nothing, is
// fuzz/ImageBytesFuzzer's. Here: that ";base64" decides the encoding, and which extension.
TEST(ImageBytesTest, DataAddressesDecodeAndTheExtensionComesFromTheTypeThenTheSignatureElseJPEG) {
    const std::string png = "\x89PNG\r\n\x1a\n";
    EXPECT_EQ(ImageBytes::fromDataURL("data:;base64,R0lG")->data, "GIF");
    EXPECT_EQ(ImageBytes::fromDataURL("data:,R0lG%20")->data, "R0lG ");

    const std::tuple<const char*, std::string, const char*> cases[] = {
        { "data:image/JPEG;base64", png, ".jpg" }, // the type wins, in any letter case
        { "image/png+jpeg", "", ".jpg" },          // in table order
        { "data:application/octet-stream;base64", png, ".png" },
        { "", png.substr(0, 7), ".jpg" },          // a PNG signature has 8 bytes
        { "", "GIF8", ".gif" },
        { "", "RIFF\x10\0\0\0WEBP"s, ".webp" },
    };
    for (const auto& [meta, bytes, extension] : cases)
        EXPECT_EQ(ImageBytes::extension(meta, bytes), extension) << meta << " " << bytes;
}

// How many downloads and print dialogs a page gets without the user: the download gate's counting, question
// and answers, and the print gate's quiet time after the dialog (the print-to-file mode has no dialog, so
// this is where the rule shows).
TEST(FloodGatesTest, DownloadsBeyondAFewWaitForOneAnswerAndThePrintDialogCannotReopenAsItCloses) {
    // Each step is a time in ms and what happens then: a download that must get the
    // verdict Start, Ask, Hold or Drop, user input (i), or the answer allow (y) or block (n).
    using enum DownloadGate::Verdict;
    std::string held = "0S 0S 0S 0A";
    for (size_t i = 1; i < DownloadGate::kMaxHeld; ++i)
        held += " 0H";
    const std::pair<const char*, std::string> cases[] = {
        { "three go, the fourth asks, more wait, block drops them for a minute",
            "0S 10S 20S 30A 40H 500n 600D 60400D 60600S" },
        { "allow lets held and further ones go for a minute, then counting starts again",
            "0S 0S 0S 0A 100y 200S 300S 400S 500S 61000S 61000S 61000S 61000A" },
        { "downloads spread out never ask", "0S 2000S 4000S 5001S 7001S 9001S 10002S" },
        { "a gesture lets one download go, not counted, and only within five seconds",
            "0S 0S 0S 100i 200S 300A 400i 500S 600n 700i 5800D 5900i 6000S 6100D" },
        { "while the question is open, a bounded number wait", held + " 0D" },
    };
    const std::map<char, DownloadGate::Verdict> verdicts = {
        { 'S', Start }, { 'A', Ask }, { 'H', Hold }, { 'D', Drop },
    };
    for (const auto& [name, steps] : cases) {
        DownloadGate gate;
        const auto start = DownloadGate::Clock::now();
        std::istringstream stream(steps);
        for (int ms; stream >> ms;) {
            const char what = static_cast<char>(stream.get());
            const auto now = start + std::chrono::milliseconds(ms);
            if (what == 'i')
                gate.userInput(now);
            else if (what == 'y' || what == 'n')
                gate.answer(what == 'y', now);
            else
                EXPECT_EQ(gate.arrive(now), verdicts.at(what)) << name << ", at " << ms << " ms";
        }
    }

    PrintGate print;
    const auto now = PrintGate::Clock::now();
    EXPECT_TRUE(print.allowsPageRequest(now));
    print.dialogOpened();
    EXPECT_FALSE(print.allowsPageRequest(now + 1s));
    print.dialogClosed(now + 10s);
    EXPECT_FALSE(print.allowsPageRequest(now + 13s));
    EXPECT_TRUE(print.allowsPageRequest(now + 13s + 1ms));
}

// Which folders code may be loaded from (the web-process extension's): only
// ones that no other user can change.
TEST(TrustedFolderTest, OnlyFoldersNoOtherUserCanChangeAreTrusted) {
    // The modes of the folder above, the folder and the module in it.
    const std::tuple<const char*, mode_t, mode_t, mode_t, bool> cases[] = {
        { "private", 0755, 0755, 0644, true },
        { "group may write the folder", 0755, 0775, 0644, false },
        { "others may write the module", 0755, 0755, 0646, false },
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
