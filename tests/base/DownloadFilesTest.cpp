#include "DownloadsFolder.h"
#include "FileNames.h"
#include "Files.h"
#include "UniqueFile.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>
#include <glib.h>
#include <glib/gstdio.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace orvane {
namespace {

std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> names;
    if (GDir* dir = g_dir_open(folder.c_str(), 0, nullptr)) {
        while (const char* name = g_dir_read_name(dir))
            names.insert(name);
        g_dir_close(dir);
    }
    return names;
}

std::string made(const std::string& folder, const std::string& suggested, const char* fallback = "download") {
    auto file = UniqueFile::create(folder, suggested, fallback);
    if (!file)
        return "<none>";
    std::string path = file->path();
    EXPECT_EQ(path.rfind(folder + "/", 0), 0u) << path;
    return path.substr(folder.size() + 1);
}

TEST(FileNamesTest, NamesFromPagesAreOnlyNames) {
    using FileNames::sanitized;
    EXPECT_EQ(sanitized("report.pdf", "download"), "report.pdf");
    EXPECT_EQ(sanitized("../../.bashrc", "download"), "bashrc");
    EXPECT_EQ(sanitized("/etc/passwd", "download"), "passwd");
    EXPECT_EQ(sanitized("..\\..\\Windows\\win.ini", "download"), "win.ini");
    EXPECT_EQ(sanitized("a/b/", "download"), "download");
    EXPECT_EQ(sanitized("..", "download"), "download");
    EXPECT_EQ(sanitized(".", "image"), "image");
    EXPECT_EQ(sanitized("", "image"), "image");
    EXPECT_EQ(sanitized("   ", "image"), "image");
    EXPECT_EQ(sanitized("%2e%2e%2f", "download"), "%2e%2e%2f"); // never decoded: only a name
    EXPECT_EQ(sanitized("notes.", "download"), "notes");
    // Control characters and every bidirectional override or isolate go.
    EXPECT_EQ(sanitized("invoice\u202Efdp.exe", "download"), "invoicefdp.exe");
    EXPECT_EQ(sanitized("a\u202Ab\u202Bc\u202Cd\u202De\u2066f\u2067g\u2068h\u2069i", "x"), "abcdefghi");
    EXPECT_EQ(sanitized(std::string("tab\there\nnul\0x\x7f", 15), "x"), "tabherenul\uFFFDx");
    EXPECT_EQ(sanitized("caf\xe9.txt", "x"), "caf\uFFFD.txt"); // invalid UTF-8 repaired
    EXPECT_EQ(sanitized("Grüße.pdf", "x"), "Grüße.pdf");

    // Too long: cut to 255 bytes, keeping the extension and whole characters.
    std::string longName = sanitized(std::string(296, 'a') + ".pdf", "x");
    EXPECT_EQ(longName.size(), 255u);
    EXPECT_TRUE(g_str_has_suffix(longName.c_str(), ".pdf"));
    std::string wide;
    for (int i = 0; i < 150; ++i)
        wide += "é";
    std::string cut = sanitized(wide + ".txt", "x");
    EXPECT_LE(cut.size(), 255u);
    EXPECT_TRUE(g_utf8_validate(cut.c_str(), -1, nullptr));
    EXPECT_TRUE(g_str_has_suffix(cut.c_str(), ".txt"));
    // An "extension" that is most of the name is not kept whole.
    EXPECT_EQ(sanitized("a." + std::string(300, 'b'), "x").size(), 255u);

    // Only the last extension is split off.
    EXPECT_EQ(FileNames::split("archive.tar.gz").base, "archive.tar");
    EXPECT_EQ(FileNames::split("archive.tar.gz").extension, "gz");
    EXPECT_EQ(FileNames::split("notes").extension, "");
    EXPECT_EQ(FileNames::numbered(FileNames::split("archive.tar.gz"), 1), "archive.tar 1.gz");
    EXPECT_EQ(FileNames::numbered(FileNames::split("notes"), 12), "notes 12");
    EXPECT_EQ(FileNames::numbered(FileNames::split(longName), 7).size(), 255u);
    EXPECT_TRUE(g_str_has_suffix(FileNames::numbered(FileNames::split(longName), 7).c_str(), "a 7.pdf"));
}

TEST(UniqueFileTest, NumberingNeverOverwritesAndStaysInTheFolder) {
    std::string root = test::makeTempFolder("unique");
    std::string folder = root + "/Downloads";
    ASSERT_TRUE(Files::makeFolder(folder));

    EXPECT_EQ(made(folder, "report.pdf"), "report.pdf");
    EXPECT_EQ(made(folder, "report.pdf"), "report 1.pdf");
    EXPECT_EQ(made(folder, "report.pdf"), "report 2.pdf");
    EXPECT_EQ(made(folder, "notes"), "notes");
    EXPECT_EQ(made(folder, "notes"), "notes 1");
    EXPECT_EQ(made(folder, "archive.tar.gz"), "archive.tar.gz");
    EXPECT_EQ(made(folder, "archive.tar.gz"), "archive.tar 1.gz");
    EXPECT_EQ(made(folder, ""), "download");
    EXPECT_EQ(made(folder, ""), "download 1");
    EXPECT_EQ(made(folder, "", "image"), "image");

    // Hostile names all land directly inside the folder.
    EXPECT_EQ(made(folder, "../../.bashrc"), "bashrc");
    EXPECT_EQ(made(folder, "/etc/passwd"), "passwd");
    EXPECT_EQ(made(folder, ".."), "download 2");
    EXPECT_EQ(made(folder, "%2e%2e%2f"), "%2e%2e%2f");
    EXPECT_EQ(made(folder, "x\u202Egnp.js"), "xgnp.js");
    std::string longName = made(folder, std::string(300, 'r') + ".pdf");
    EXPECT_EQ(longName.size(), 255u);
    std::string longSecond = made(folder, std::string(300, 'r') + ".pdf");
    EXPECT_EQ(longSecond.size(), 255u);
    EXPECT_TRUE(g_str_has_suffix(longSecond.c_str(), " 1.pdf"));
    EXPECT_EQ(namesIn(root), std::set<std::string> { "Downloads" }) << "something was made outside the folder";
    EXPECT_FALSE(Files::exists(root + "/.bashrc"));

    // A planted symbolic link (pointing out of the folder, or nowhere) is
    // never followed: the name counts as taken.
    std::string outside = root + "/victim";
    ASSERT_TRUE(g_file_set_contents(outside.c_str(), "precious", -1, nullptr));
    ASSERT_EQ(symlink(outside.c_str(), (folder + "/photo.png").c_str()), 0);
    ASSERT_EQ(symlink((root + "/nowhere").c_str(), (folder + "/photo 1.png").c_str()), 0);
    ASSERT_EQ(g_mkdir((folder + "/photo 2.png").c_str(), 0700), 0);
    auto file = UniqueFile::create(folder, "photo.png", "image");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->path(), folder + "/photo 3.png");
    EXPECT_TRUE(file->write("new bytes"));
    gchar* kept = nullptr;
    ASSERT_TRUE(g_file_get_contents(outside.c_str(), &kept, nullptr, nullptr));
    EXPECT_STREQ(kept, "precious");
    g_free(kept);
    EXPECT_FALSE(Files::exists(root + "/nowhere"));

    // A name whose sibling (a partial download) exists counts as taken.
    ASSERT_EQ(symlink(outside.c_str(), (folder + "/movie.mp4.part").c_str()), 0);
    auto beside = UniqueFile::create(folder, "movie.mp4", "download", ".part");
    ASSERT_TRUE(beside);
    EXPECT_EQ(beside->path(), folder + "/movie 1.mp4");
    EXPECT_FALSE(Files::exists(folder + "/movie.mp4"));
    EXPECT_FALSE(Files::exists(folder + "/movie 1.mp4.part"));

    // Only the untouched file that was made is ever removed.
    beside->close();
    UniqueFile::Identity identity = beside->identity();
    ASSERT_TRUE(g_file_set_contents(identity.path.c_str(), "written", -1, nullptr));
    EXPECT_FALSE(UniqueFile::removeIfUntouched(identity));
    EXPECT_TRUE(Files::exists(identity.path));
    auto untouched = UniqueFile::create(folder, "movie.mp4", "download");
    ASSERT_TRUE(untouched);
    untouched->close();
    EXPECT_TRUE(UniqueFile::removeIfUntouched(untouched->identity()));
    EXPECT_FALSE(Files::exists(untouched->identity().path));

    // No folder, no file.
    EXPECT_FALSE(UniqueFile::create(root + "/missing", "a.txt", "download"));
}

TEST(UniqueFileTest, ParallelSavesOfOneNameEachGetTheirOwnFile) {
    std::string folder = test::makeTempFolder("parallel");
    constexpr int kSaves = 100;
    std::vector<std::string> paths(kSaves);
    std::vector<std::thread> threads;
    for (int i = 0; i < kSaves; ++i) {
        threads.emplace_back([&, i] {
            auto file = UniqueFile::create(folder, "report.pdf", "download");
            if (file && file->write("save " + std::to_string(i)))
                paths[i] = file->path();
        });
    }
    for (auto& thread : threads)
        thread.join();

    std::set<std::string> expected { "report.pdf" };
    for (int n = 1; n < kSaves; ++n)
        expected.insert("report " + std::to_string(n) + ".pdf");
    EXPECT_EQ(namesIn(folder), expected);
    // Every save kept its own bytes: none was overwritten.
    for (int i = 0; i < kSaves; ++i) {
        ASSERT_FALSE(paths[i].empty()) << i;
        auto bytes = Files::read(paths[i], 100);
        EXPECT_EQ(bytes.value_or(""), "save " + std::to_string(i));
    }
}

TEST(DownloadsFolderTest, UserDirsThenHomeDownloadsCreatedWhenMissing) {
    std::string home = test::makeTempFolder("home");
    std::string config = test::makeTempFolder("config");
    g_setenv("HOME", home.c_str(), TRUE);
    g_setenv("XDG_CONFIG_HOME", config.c_str(), TRUE);

    // No user-dirs.dirs: ~/Downloads, made on first use.
    EXPECT_EQ(DownloadsFolder::path().value_or(""), home + "/Downloads");
    EXPECT_TRUE(g_file_test((home + "/Downloads").c_str(), G_FILE_TEST_IS_DIR));

    // Read anew on every call, in both of the file's forms; the last one wins.
    std::string dirs = config + "/user-dirs.dirs";
    ASSERT_TRUE(g_file_set_contents(dirs.c_str(),
        "# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOWNLOAD_DIR=\"$HOME/Saved/Files/\"\n",
        -1, nullptr));
    EXPECT_EQ(DownloadsFolder::path().value_or(""), home + "/Saved/Files");
    std::string absolute = test::makeTempFolder("elsewhere") + "/Inbox";
    ASSERT_TRUE(g_file_set_contents(dirs.c_str(),
        ("XDG_DOWNLOAD_DIR=\"$HOME/Old\"\n  XDG_DOWNLOAD_DIR = \"" + absolute + "\"\n").c_str(), -1, nullptr));
    EXPECT_EQ(DownloadsFolder::path().value_or(""), absolute);
    // A relative or malformed entry is ignored.
    ASSERT_TRUE(g_file_set_contents(dirs.c_str(), "XDG_DOWNLOAD_DIR=\"Downloads2\"\nXDG_DOWNLOAD_DIR=$HOME/x\n", -1, nullptr));
    EXPECT_EQ(DownloadsFolder::path().value_or(""), home + "/Downloads");

    // A Downloads path that is a file cannot be a folder: nothing.
    std::string blocked = home + "/Blocked";
    ASSERT_TRUE(g_file_set_contents(blocked.c_str(), "not a folder", -1, nullptr));
    ASSERT_TRUE(g_file_set_contents(dirs.c_str(), "XDG_DOWNLOAD_DIR=\"$HOME/Blocked\"\n", -1, nullptr));
    EXPECT_FALSE(DownloadsFolder::path());
    EXPECT_EQ(DownloadsFolder::configuredPath(), blocked);
}

} // namespace
} // namespace orvane
