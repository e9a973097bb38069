#include "AccountStore.h"

#include "AppPaths.h"
#include "Files.h"
#include "GRef.h"
#include "UniqueFile.h"
#include "Preferences.h"
#include "support/LoggedWarnings.h"
#include "support/TestEnvironment.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvane {
namespace {

// The names in the accounts file's folder that start with its own name.
std::vector<std::string> accountsFiles() {
    std::vector<std::string> names;
    GCharPtr folder(g_path_get_dirname(AppPaths::accountsFile().c_str()));
    if (GDir* dir = g_dir_open(folder.get(), 0, nullptr)) {
        while (const char* name = g_dir_read_name(dir))
            if (g_str_has_prefix(name, "accounts.json"))
                names.emplace_back(name);
        g_dir_close(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A child process saves the store over and over; the parent kills it at a
// random moment, many times. Every time, the file on disk must be a whole
// file that the store loads: the old content or the new, never a torn one.
TEST(AccountStoreCrash, AKilledSaveLeavesAWholeFile) {
    test::freshXDGFolders();
    {
        AccountStore seed;
        seed.addAccount();
    }
    const std::string path = AppPaths::accountsFile();
    // Names that only look like a save's temporary file stay.
    ASSERT_TRUE(Files::replaceAtomically(path + ".bak", "{}"));
    ASSERT_TRUE(Files::makeFolder(path + ".Ab12Cd"));
    const std::vector<std::string> kKept = { "accounts.json", "accounts.json.Ab12Cd", "accounts.json.bak" };
    GRand* random = g_rand_new_with_seed(20261123);
    constexpr int kRounds = 1000;
    int checked = 0;
    for (int round = 0; round < kRounds; ++round) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // A forked child inherits the parent's random state; without a new
            // seed every child would make the same account ids.
            g_random_set_seed(static_cast<guint32>(getpid()) ^ static_cast<guint32>(g_get_monotonic_time()));
            AccountStore store;
            for (;;) {
                if (store.accounts().size() > 40)
                    store.remove(store.accounts().front());
                else
                    store.addAccount();
            }
        }
        // Deliberately random kill times, from "before the first write" to
        // "many writes in".
        g_usleep(g_rand_int_range(random, 0, 15000));
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);

        auto bytes = Files::read(path, AccountStore::kMaxFileBytes);
        ASSERT_TRUE(bytes) << "round " << round;
        auto json = nlohmann::json::parse(*bytes, nullptr, false);
        ASSERT_TRUE(json.is_object() && json["accounts"].is_array()) << "round " << round << ": " << *bytes;
        AccountStore loaded;
        ASSERT_EQ(loaded.accounts().size(), json["accounts"].size());
        ASSERT_GE(loaded.accounts().size(), 1u) << "round " << round << ": " << *bytes;
        // Loading removed whatever the killed save left behind.
        ASSERT_EQ(accountsFiles(), kKept) << "round " << round;
        ++checked;
    }
    g_rand_free(random);
    EXPECT_EQ(checked, kRounds);
}

bool writeText(const char* path, const std::string& text) {
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    bool ok = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (fd >= 0)
        close(fd);
    return ok;
}

// Mounts a 64 KiB tmpfs on the folder, seen by this process alone (a mount
// namespace of its own, inside a user namespace when not root). False where
// the system allows neither.
bool mountSmallDisk(const std::string& folder) {
    if (unshare(CLONE_NEWNS) != 0) {
        std::string uid = "0 " + std::to_string(getuid()) + " 1";
        std::string gid = "0 " + std::to_string(getgid()) + " 1";
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !writeText("/proc/self/setgroups", "deny")
            || !writeText("/proc/self/uid_map", uid) || !writeText("/proc/self/gid_map", gid))
            return false;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k,mode=0700") == 0;
}

// Runs in a child process of its own (it changes mounts, limits and signals).
// Where no tmpfs can be mounted, a file-size limit stands in for the full
// disk and a folder without write permission for the read-only one.
void saveIntoFullThenReadOnlyFolder(const std::string& folder) {
    const bool mounted = mountSmallDisk(folder);
    if (!mounted)
        printf("No tmpfs could be mounted: a file-size limit stands in for the full disk\n");
    g_setenv("XDG_DATA_HOME", folder.c_str(), TRUE);
    test::LoggedWarnings warnings;
    AccountStore store;
    store.addAccount();
    const std::string path = AppPaths::accountsFile();
    const std::string preferences = folder + "/Orvane/preferences.ini";

    auto failedSaveKeepsTheFile = [&] {
        const std::string before = Files::read(path, 1 << 20).value_or("");
        warnings.clear();
        Account renamed = store.accounts().front();
        renamed.label = std::string(Account::kMaxLabelBytes, 'x');
        store.update(renamed);
        EXPECT_EQ(Files::read(path, 1 << 20), before);
        EXPECT_EQ(accountsFiles(), std::vector<std::string> { "accounts.json" }) << "no temporary file left";
        EXPECT_NE(warnings.find(path), "") << "the failed save is logged";
        EXPECT_FALSE(Preferences(preferences).setString("Key", "value"));
        EXPECT_NE(warnings.find(preferences), "");
    };

    // A full disk: a filler takes the rest of the tmpfs, or a limit of 16 bytes per file.
    const std::string filler = folder + "/filler";
    struct rlimit unlimited { };
    getrlimit(RLIMIT_FSIZE, &unlimited);
    if (mounted) {
        FILE* file = fopen(filler.c_str(), "w");
        ASSERT_TRUE(file);
        std::string block(4096, 'f');
        while (fwrite(block.data(), 1, block.size(), file) == block.size() && fflush(file) == 0) { }
        fclose(file);
    } else {
        signal(SIGXFSZ, SIG_IGN); // as Orvane's main() does
        struct rlimit small { 16, unlimited.rlim_max };
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    }
    {
        SCOPED_TRACE(mounted ? "full tmpfs" : "file-size limit");
        failedSaveKeepsTheFile();
        // A saved image or download: the partial file goes, with a warning.
        auto image = UniqueFile::create(folder, "image.png", "image");
        ASSERT_TRUE(image);
        EXPECT_FALSE(image->write(std::string(8192, 'i')));
        EXPECT_FALSE(Files::exists(image->path()));
        EXPECT_NE(warnings.find(image->path()), "");
    }
    // With room again, the next save writes what the store held all along.
    if (mounted)
        unlink(filler.c_str());
    else
        setrlimit(RLIMIT_FSIZE, &unlimited);
    store.save();
    EXPECT_EQ(AccountStore().accounts().front().label, std::string(Account::kMaxLabelBytes, 'x'));

    // A read-only folder. Root writes through missing permissions: without
    // a mount there is no read-only folder to try.
    if (mounted)
        ASSERT_EQ(mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, "size=64k,mode=0700"), 0);
    else if (geteuid() != 0)
        ASSERT_EQ(chmod((folder + "/Orvane").c_str(), 0500), 0);
    else
        return (void)printf("Root without a tmpfs: no read-only folder to try\n");
    SCOPED_TRACE("read-only");
    failedSaveKeepsTheFile();
}

TEST(AccountStoreFaults, SavesIntoAFullOrReadOnlyFolderKeepTheOldFileAndGoOn) {
    const std::string folder = test::makeTempFolder("small-disk");
    fflush(stdout);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        saveIntoFullThenReadOnlyFolder(folder);
        fflush(stdout);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "the child ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "see the failures the child printed above";
}

} // namespace
} // namespace orvane
