#include "accounts/AccountStore.h"

#include "accounts/AppPaths.h"
#include "base/Files.h"
#include "base/GRef.h"
#include "support/TestEnvironment.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

#include <signal.h>
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
    int checked = 0;
    size_t lastCount = 1;
    for (int round = 0; round < 150; ++round) {
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
        ASSERT_TRUE(json.is_object() && json["accounts"].is_array()) << "torn file in round " << round << ": " << *bytes;
        AccountStore loaded;
        ASSERT_EQ(loaded.accounts().size(), json["accounts"].size());
        // Loading removed whatever the killed save left behind.
        ASSERT_EQ(accountsFiles(), kKept) << "round " << round;
        ASSERT_GE(loaded.accounts().size(), 1u) << "round " << round << ": " << *bytes;
        lastCount = loaded.accounts().size();
        ++checked;
    }
    g_rand_free(random);
    EXPECT_EQ(checked, 150);
    EXPECT_GE(lastCount, 1u);
}

} // namespace
} // namespace orvane
