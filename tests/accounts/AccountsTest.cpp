// The accounts: how the store reads, saves and removes them, and the pure rules of their tiles.
#include "AccountStore.h"
#include "AvatarStyle.h"

#include "AppPaths.h"
#include "Files.h"
#include "GRef.h"
#include "Preferences.h"
#include "SessionPreferences.h"
#include "UniqueFile.h"
#include "support/LoggedWarnings.h"
#include "support/TestEnvironment.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <ranges>
#include <vector>

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvane {
namespace {

using nlohmann::json;
using IDs = std::vector<std::string>;

constexpr const char* M1 = "11111111-1111-4111-8111-111111111111";
constexpr const char* M2 = "22222222-2222-4222-8222-222222222222";
constexpr const char* C1 = "33333333-3333-4333-8333-333333333333";
constexpr const char* DS1 = "AAAAAAAA-AAAA-4AAA-8AAA-AAAAAAAAAAAA";
constexpr const char* DS2 = "BBBBBBBB-BBBB-4BBB-8BBB-BBBBBBBBBBBB";

std::string uuid(unsigned n) {
    return GCharPtr(g_strdup_printf("%08X-0000-4000-8000-%012X", n, n)).get();
}

json record(const std::string& id, const std::string& store, const char* service = nullptr,
    const std::string& avatar = {}) {
    json r = { { "id", id }, { "label", "label-" + id }, { "dataStoreID", store }, { "colorSeed", 10 } };
    if (service)
        r["service"] = service;
    if (!avatar.empty())
        r["avatarFileName"] = avatar;
    return r;
}

// The names in the accounts file's folder that start with its own name, sorted.
std::vector<std::string> accountsFiles() {
    std::vector<std::string> names = Files::names(AppPaths::supportDir());
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("accounts.json"); });
    std::sort(names.begin(), names.end());
    return names;
}

json with(json r, const json& changes) {
    r.update(changes);
    return r;
}

json without(json r, const char* member) {
    r.erase(member);
    return r;
}

class AccountStoreTest : public ::testing::Test {
protected:
    void SetUp() override { test::freshXDGFolders(); }

    static void writeText(const std::string& text) {
        ASSERT_TRUE(Files::replaceAtomically(AppPaths::accountsFile(), text));
    }
    static std::string fileText() {
        return Files::read(AppPaths::accountsFile(), 2 * AccountStore::kMaxFileBytes).value_or("");
    }
    static json readFile() { return json::parse(fileText(), nullptr, false); }
    // True when the operation writes the file (it is removed first).
    static bool saves(const std::function<void()>& operation) {
        g_remove(AppPaths::accountsFile().c_str());
        operation();
        return Files::exists(AppPaths::accountsFile());
    }
    // The contents of the unreadable files kept beside accounts.json, sorted;
    // each named with the UTC time it was kept.
    static std::vector<std::string> keptCopies() {
        std::vector<std::string> contents;
        for (const std::string& name : accountsFiles()) {
            if (!name.starts_with("accounts.json.unreadable-"))
                continue;
            EXPECT_TRUE(g_regex_match_simple("^accounts\\.json\\.unreadable-[0-9]{8}T[0-9]{6}Z(-[0-9]+)?$",
                name.c_str(), GRegexCompileFlags(0), GRegexMatchFlags(0))) << name;
            contents.push_back(Files::read(AppPaths::supportDir() + "/" + name, 1 << 20).value_or("?"));
        }
        std::sort(contents.begin(), contents.end());
        return contents;
    }
    static IDs ids(const AccountStore& store) {
        auto view = store.accounts() | std::views::transform(&Account::id);
        return { view.begin(), view.end() };
    }
};

// A record breaking a rule is left out on its own, a bad file name costs only the name; the file is kept
// aside before the save that drops them. That what is read is bounded, has canonical ids and reads back the
// same when written is fuzz/AccountsFileFuzzer's.
TEST_F(AccountStoreTest, ReadsTheListTolerantlyAndEverythingElseStrictly) {
    test::LoggedWarnings warnings;
    const json good = record(uuid(0), DS1);
    const json tolerated = { { "service", "calendar" }, { "avatarFileName", nullptr }, { "colorSeed", -400 },
        { "new", { 1 } } };
    json list = { with(good, tolerated) };
    const IDs names = { "photo.png", "a/b.png", "..", std::string(256, 'n') };
    for (unsigned i = 0; i < names.size(); ++i)
        list.push_back(record(uuid(i + 1), DS1, nullptr, names[i]));
    for (const json& bad : { json(42), with(good, { { "service", "exchange" } }),
             with(good, { { "service", 1 } }), with(good, { { "colorSeed", "211" } }),
             with(good, { { "colorSeed", 2.5 } }), with(good, { { "colorSeed", UINT64_MAX } }),
             without(good, "id"), with(good, { { "dataStoreID", 7 } }), with(good, { { "label", nullptr } }),
             with(good, { { "avatarFileName", 3 } }), without(good, "label"), without(good, "colorSeed") })
        list.push_back(bad);
    const std::string partly = json({ { "accounts", list } }).dump();
    writeText(partly);
    {
        AccountStore store;
        EXPECT_EQ(ids(store), (IDs { uuid(1), uuid(2), uuid(3), uuid(4), uuid(0) })) << "mail first";
        EXPECT_EQ(store.selectedAccountID(), uuid(1)) << "no stored selection: the first account";
        EXPECT_EQ(store.account(uuid(1))->avatarFileName, "photo.png");
        for (unsigned i = 1; i < names.size(); ++i)
            EXPECT_FALSE(store.account(uuid(i + 1))->avatarFileName) << names[i];
        store.save();
        EXPECT_FALSE(readFile()["accounts"][0].contains("service")) << "an absent service stays absent";
        EXPECT_EQ(keptCopies(), std::vector<std::string> { partly });
    }

    // A bad setting or a broken file: nothing is read, the file stays until
    // the next save, which keeps it aside (the newest three copies stay).
    const json one = { record(M1, DS1) };
    const std::string whole = json({ { "accounts", one } }).dump();
    const std::vector<std::string> rejected = {
        json({ { "accounts", one }, { "pad", std::string(AccountStore::kMaxFileBytes, ' ') } }).dump(),
        json({ { "accounts", one }, { "showDockBadge", "yes" } }).dump(),
        json({ { "accounts", one }, { "selectedAccountID", "not-a-uuid" } }).dump(),
        json({ { "accounts", record(M1, DS1) } }).dump(), whole.substr(0, whole.size() / 2), "[]",
    };
    for (const auto& text : rejected) {
        writeText(text);
        AccountStore store;
        EXPECT_TRUE(store.accounts().empty() && store.alwaysAskOnMailto()) << text;
        EXPECT_EQ(fileText(), text);
        warnings.clear();
        store.addAccount();
        EXPECT_EQ(readFile()["accounts"].size(), 1u);
        EXPECT_NE(warnings.find(" as " + AppPaths::supportDir() + "/accounts.json.unreadable-"), "") << text;
    }
    std::vector<std::string> newest(rejected.end() - 3, rejected.end());
    std::sort(newest.begin(), newest.end());
    EXPECT_EQ(keptCopies(), newest);
}

// A removal is saved at once and can be undone until committed, which deletes what the account alone
// used (photo and session while no companion, remaining or pending, shares them, only as regular
// files and folders of its own) and forgets its preferences; the store's end commits.
TEST_F(AccountStoreTest, RemovalCanBeUndoneUntilCommittedThenDeletesOnlyWhatTheAccountAloneUsed) {
    const std::string outside = test::makeTempFolder("outside");
    const std::string avatars = AppPaths::avatarsDir();
    ASSERT_TRUE(Files::replaceAtomically(outside + "/keep", "keep"));
    ASSERT_TRUE(Files::makeFolder(avatars + "/folder.png/inner"));
    ASSERT_EQ(symlink(outside.c_str(), (avatars + "/link.png").c_str()), 0);
    ASSERT_TRUE(Files::replaceAtomically(avatars + "/shared.png", "png"));
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteDataDir(DS2) + "/cookies"));
    ASSERT_EQ(symlink(outside.c_str(), AppPaths::websiteDataDir(uuid(1)).c_str()), 0);
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteDataDir(DS1) + "/deep/er"));
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteCacheDir(DS1)));
    json list = { record(M1, DS1, nullptr, "shared.png"), record(M2, DS2),
        record(C1, DS1, "calendar", "shared.png") };
    const IDs names = { "../accounts.json", "folder.png", "link.png" };
    for (unsigned i = 0; i < names.size(); ++i)
        list.push_back(record(uuid(i), uuid(i), nullptr, names[i]));
    writeText(json({ { "accounts", list }, { "selectedAccountID", M1 }, { "defaultMailtoAccountID", M1 } })
                  .dump());
    Preferences preferences;
    SessionPreferences session(preferences);
    ASSERT_TRUE(session.setZoom(M1, 2) && session.setNotificationsMuted(M1, true) && session.setZoom(M2, 3));
    auto store = std::make_unique<AccountStore>();
    store->setAccountForgetter([&](const std::string& id) {
        session.forgetAccounts([&](auto& gone) { return gone == id; });
    });
    const IDs before = ids(*store);

    store->remove(*store->account(M1));
    EXPECT_EQ(store->selectedAccountID(), M2) << "the selection moves to the first remaining account";
    EXPECT_FALSE(readFile().contains("defaultMailtoAccountID"));
    store->remove(*store->account(C1));
    EXPECT_EQ(readFile()["accounts"].size(), before.size() - 2) << "saved without them";
    EXPECT_TRUE(store->undoRemoval(M1) && store->undoRemoval(C1) && !store->undoRemoval(M1));
    EXPECT_EQ(ids(AccountStore()), before) << "saved back in their places, undone in any order";
    EXPECT_EQ(std::tie(store->selectedAccountID(), store->defaultMailtoAccountID()), std::tie(M1, M1));
    store->remove(*store->account(M1));
    store->remove(*store->account(C1));
    store->commitRemoval(M1);
    EXPECT_TRUE(Files::exists(avatars + "/shared.png") && Files::exists(AppPaths::websiteCacheDir(DS1)))
        << "the pending companion may still come back";
    EXPECT_EQ(std::tuple(session.zoom(M1), session.notificationsMuted(M1), session.zoom(M2)),
        std::tuple(1., false, 3.));
    store->commitRemoval(C1);
    for (const std::string& gone :
        { avatars + "/shared.png", AppPaths::websiteCacheDir(DS1), AppPaths::websiteDataDir(DS1) })
        EXPECT_FALSE(Files::exists(gone)) << gone;
    for (unsigned i = 0; i < names.size(); ++i)
        store->remove(*store->account(uuid(i)));
    store->commitRemovals();
    EXPECT_EQ(ids(*store), IDs { M2 });
    for (const std::string& kept : { AppPaths::accountsFile(), outside + "/keep",
             AppPaths::websiteDataDir(DS2) + "/cookies", avatars + "/folder.png/inner" })
        EXPECT_TRUE(Files::exists(kept)) << kept;
    EXPECT_TRUE(g_file_test((avatars + "/link.png").c_str(), G_FILE_TEST_IS_SYMLINK));
    EXPECT_FALSE(g_file_test(AppPaths::websiteDataDir(uuid(1)).c_str(), G_FILE_TEST_IS_SYMLINK))
        << "the link went, not its target";
    store->remove(*store->account(M2));
    EXPECT_FALSE(readFile().contains("selectedAccountID"));
    store.reset();
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(DS2)));

    // After a crash, what no account names goes: only Orvane's names, only after reading the whole file.
    const std::string kept = std::string(M1) + "-kept.png", orphan = std::string(M2) + "-gone.png";
    const json whole = { record(M1, DS1, nullptr, kept) }, partly = { record(M1, DS1, nullptr, kept), 42 };
    for (const auto& [accounts, cleaned] : { std::pair { whole, true }, { partly, false } }) {
        writeText(json({ { "accounts", accounts } }).dump());
        for (const std::string& folder : { AppPaths::websiteDataDir(DS1), AppPaths::websiteDataDir(DS2),
                 AppPaths::websiteCacheDir(DS2), AppPaths::websiteDataDir("Other"),
                 AppPaths::websiteDataDir(uuid(1) + "x") })
            ASSERT_TRUE(Files::makeFolder(folder));
        for (const std::string& name : { kept, orphan, std::string("photo.png") })
            ASSERT_TRUE(Files::replaceAtomically(avatars + "/" + name, "png"));
        EXPECT_EQ(AccountStore().removeOrphans(), cleaned) << accounts;
        for (const std::string& path :
            { AppPaths::websiteDataDir(DS2), AppPaths::websiteCacheDir(DS2), avatars + "/" + orphan })
            EXPECT_EQ(Files::exists(path), !cleaned) << accounts << path;
        for (const std::string& path : { AppPaths::websiteDataDir(DS1), AppPaths::websiteDataDir("Other"),
                 AppPaths::websiteDataDir(uuid(1) + "x"), avatars + "/" + kept, avatars + "/photo.png" })
            EXPECT_TRUE(Files::exists(path)) << accounts << path;
    }
}

// However the accounts grew, a file its own loader would refuse is never written: the old file stays.
// Labels and photo addresses from pages are bounded before they are stored.
TEST_F(AccountStoreTest, NeverStoresUnboundedValuesOrWritesAFileItsLoaderWouldRefuse) {
    const std::string longLabel(Account::kMaxLabelBytes, 'l');
    json full = with(record(M1, DS1, nullptr, std::string(255, 'n')),
        { { "label", longLabel }, { "avatarSourceURL", std::string(Account::kMaxPhotoAddressBytes, 'u') } });
    const size_t recordBytes = full.dump().size() + 1;
    json list = json::array();
    for (unsigned i = 0; i < (AccountStore::kMaxFileBytes - 16) / recordBytes; ++i)
        list.push_back(with(full, { { "id", uuid(i) } }));
    writeText(json({ { "accounts", list } }).dump());
    const std::string before = fileText();
    ASSERT_GT(before.size() + recordBytes, AccountStore::kMaxFileBytes) << "one more passes the limit";

    AccountStore store;
    test::LoggedWarnings warnings;
    store.addCalendar(store.accounts().front());
    EXPECT_EQ(store.accounts().size(), list.size() + 1) << "kept in memory";
    EXPECT_EQ(fileText(), before);
    EXPECT_NE(warnings.find("Not saving"), "");

    Account paged = store.accounts().front();
    paged.label = longLabel.substr(1) + "\u00e9" + std::string(1 << 20, 'l');
    paged.avatarSourceURL = std::string(Account::kMaxPhotoAddressBytes + 1, 'u');
    store.update(paged);
    const Account calendar = store.addCalendar(paged);
    for (const Account* a : { store.account(paged.id), store.account(calendar.id) }) {
        EXPECT_EQ(a->label, longLabel.substr(1)) << "cut, and not inside a character";
        EXPECT_FALSE(a->avatarSourceURL);
    }
}

TEST_F(AccountStoreTest, OnlyOperationsThatChangeSomethingSaveAndNotify) {
    EXPECT_FALSE(saves([] { AccountStore(); })) << "loading never saves";
    const json list = { record(C1, DS1, "calendar"), record(M1, DS1), record(M2, DS2) };
    writeText(json({ { "accounts", list } }).dump());
    AccountStore store;
    using Changes = std::vector<unsigned>;
    Changes changes;
    auto subscription = store.observe([&](unsigned change) { changes.push_back(change); });
    const Account first = store.accounts().front();
    Account unknown = first;
    unknown.id = "44444444-4444-4444-8444-444444444444";
    for (const auto& noChange : std::vector<std::function<void()>> { [&] { store.move(first, -1); },
             [&] { store.move(store.accounts().back(), 1); }, [&] { store.select(3); },
             [&] { store.update(unknown); }, [&] { store.move(unknown, 1); } })
        EXPECT_FALSE(saves(noChange));
    EXPECT_TRUE(changes.empty());
    EXPECT_FALSE(saves([&] { store.setNotificationsEnabled(true); })) << "setters leave saving to the caller";
    EXPECT_EQ(changes, Changes { StoreChangeSettings });

    // Loaded mail first: M1, M2, C1. A swap, not a rotation: the account in between stays; update and
    // move keep the order they made, the next load puts calendars last again.
    changes.clear();
    EXPECT_TRUE(saves([&] { store.move(first, 2); }));
    EXPECT_EQ(ids(store), (IDs { C1, M2, M1 }));
    EXPECT_EQ(changes, Changes { StoreChangeAccounts });
    EXPECT_TRUE(saves([&] { store.select(2); }));
    EXPECT_EQ(store.selectedAccountID(), M1);
    Account renamed = *store.account(M2);
    renamed.label = "someone@example.com";
    EXPECT_TRUE(saves([&] { store.update(renamed); }));
    EXPECT_EQ(ids(store), (IDs { C1, M2, M1 }));
    EXPECT_EQ(ids(AccountStore()), (IDs { M2, M1, C1 }));

    // What is added is selected; a companion goes after its account, with its session, label and colour.
    changes.clear();
    const Account added = store.addAccount();
    EXPECT_TRUE(!added.service && canonicalUUID(added.id) == added.id && added.id != added.dataStoreID);
    EXPECT_EQ(changes, (Changes { StoreChangeAccounts, StoreChangeSelection }));
    const Account m2 = *store.account(M2);
    const Account companion = store.addCalendar(m2);
    EXPECT_EQ(ids(store), (IDs { M2, M1, added.id, companion.id, C1 })) << "after its account's side";
    EXPECT_EQ(store.selectedAccountID(), companion.id);
    EXPECT_TRUE(companion.isCalendar());
    EXPECT_EQ(std::tie(companion.dataStoreID, companion.label, companion.colorSeed),
        std::tie(m2.dataStoreID, m2.label, m2.colorSeed));
}

// A child process saves the store over and over; the parent kills it at a
// random moment, many times. Every time, the file on disk must be a whole
// file that the store loads: the old content or the new, never a torn one.
TEST_F(AccountStoreTest, AKilledSaveLeavesAWholeFile) {
    AccountStore().addAccount();
    const std::string path = AppPaths::accountsFile();
    // Names that only look like a save's temporary file stay.
    ASSERT_TRUE(Files::replaceAtomically(path + ".bak", "{}"));
    ASSERT_TRUE(Files::makeFolder(path + ".Ab12Cd"));
    const std::vector<std::string> kKept = { "accounts.json", "accounts.json.Ab12Cd", "accounts.json.bak" };
    g_random_set_seed(20261123);
    for (int round = 0; round < 1000; ++round) {
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
        // Deliberately random kill times, from "before the first write" to "many writes in".
        g_usleep(g_random_int_range(0, 15000));
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        // A missing or torn file loads no account at all.
        ASSERT_FALSE(AccountStore().accounts().empty())
            << "round " << round << ": " << Files::read(path, AccountStore::kMaxFileBytes).value_or("(none)");
        // Loading removed whatever the killed save left behind.
        ASSERT_EQ(accountsFiles(), kKept) << "round " << round;
    }
}

bool writeProcFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    return bool(file << text << std::flush);
}

// Mounts a 64 KiB tmpfs on the folder, seen by this process alone (a mount namespace of its own, inside a
// user namespace when not root). False where the system allows neither.
bool mountSmallDisk(const std::string& folder) {
    if (unshare(CLONE_NEWNS) != 0) {
        std::string uid = "0 " + std::to_string(getuid()) + " 1";
        std::string gid = "0 " + std::to_string(getgid()) + " 1";
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !writeProcFile("/proc/self/setgroups", "deny")
            || !writeProcFile("/proc/self/uid_map", uid) || !writeProcFile("/proc/self/gid_map", gid))
            return false;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k,mode=0700") == 0;
}

// Runs in a child process of its own (it changes mounts, limits and signals). Where no tmpfs can be
// mounted, a file-size limit stands in for the full disk.
void saveIntoAFullFolder(const std::string& folder) {
    const bool mounted = mountSmallDisk(folder);
    if (!mounted)
        printf("No tmpfs could be mounted: a file-size limit stands in for the full disk\n");
    SCOPED_TRACE(mounted ? "full tmpfs" : "file-size limit");
    g_setenv("XDG_DATA_HOME", folder.c_str(), TRUE);
    test::LoggedWarnings warnings;
    AccountStore store;
    store.addAccount();
    const std::string path = AppPaths::accountsFile();
    const std::string before = Files::read(path, 1 << 20).value_or("");

    // A filler takes the rest of the tmpfs, or a limit of 16 bytes per file.
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
    Account renamed = store.accounts().front();
    renamed.label = std::string(Account::kMaxLabelBytes, 'x');
    store.update(renamed);
    EXPECT_EQ(Files::read(path, 1 << 20), before);
    EXPECT_EQ(accountsFiles(), std::vector<std::string> { "accounts.json" }) << "no temporary file left";
    EXPECT_NE(warnings.find(path), "") << "the failed save is logged";
    const std::string preferences = folder + "/Orvane/preferences.ini";
    EXPECT_FALSE(Preferences(preferences).setString("Key", "value"));
    EXPECT_NE(warnings.find(preferences), "");
    // A saved image or download: the partial file goes, with a warning.
    auto image = UniqueFile::create(folder, "image.png", "image");
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->write(std::string(8192, 'i')));
    EXPECT_FALSE(Files::exists(image->path()));
    EXPECT_NE(warnings.find(image->path()), "");

    // With room again, the next save writes what the store held all along.
    if (mounted)
        unlink(filler.c_str());
    else
        setrlimit(RLIMIT_FSIZE, &unlimited);
    store.save();
    EXPECT_EQ(AccountStore().accounts().front().label, std::string(Account::kMaxLabelBytes, 'x'));
}

TEST(AccountStoreFaults, SavesIntoAFullFolderKeepTheOldFileAndGoOn) {
    const std::string folder = test::makeTempFolder("small-disk");
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        saveIntoAFullFolder(folder);
        fflush(stdout);
        _exit(::testing::Test::HasFailure());
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "the child failed (see above) or ended by a signal";
}

// The pure rules of the avatar tile: its letter, its colour and its unread text. How the tile draws them is
// the tile's widget test.
TEST(AvatarStyleTest, InitialColourAndUnreadTextOfATile) {
    using namespace AvatarStyle;
    // The initial: the first character, upper-cased, or "+".
    const std::pair<std::string, std::string> cases[] = {
        { "New Account", "N" }, { "", "+" }, { "  ?unknown", "+" },
        { " \t bob", "B" }, { "\nx", "\n" },   // only spaces and tabs are trimmed
        { "ßeta", "SS" },                      // full case mapping
        { "e\u0301clair", "E\u0301" },         // a letter and its mark are one character
        { std::string("\xff" "abc", 4), "\uFFFD" }, // broken UTF-8 is repaired first
    };
    for (const auto& [label, initial] : cases)
        EXPECT_EQ(initialForLabel(label), initial) << label;

    // Seeds give half-saturated colours round the wheel.
    EXPECT_DOUBLE_EQ(hueForSeed(725), 5.0 / 360.0);
    EXPECT_DOUBLE_EQ(hueForSeed(-30), 330.0 / 360.0) << "negative seeds wrap around";
    EXPECT_DOUBLE_EQ(hueForSeed(-360), 0.0);
    // The colour drawn for seed 30 is checked by AvatarViewTest (tests/app/SidebarViewUITest).

    // The unread text is empty below one and caps at 99+.
    const std::pair<int64_t, const char*> unread[] = {
        { -1, "" }, { 0, "" }, { 1, "1" }, { 99, "99" }, { 100, "99+" },
    };
    for (const auto& [count, text] : unread)
        EXPECT_EQ(unreadText(count), text) << count;
}

} // namespace
} // namespace orvane
