#include "AccountStore.h"

#include "AppPaths.h"
#include "Files.h"
#include "GRef.h"
#include "support/LoggedWarnings.h"
#include "support/TestEnvironment.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

namespace orvane {
namespace {

using nlohmann::json;

constexpr const char* M1 = "11111111-1111-4111-8111-111111111111";
constexpr const char* M2 = "22222222-2222-4222-8222-222222222222";
constexpr const char* C1 = "33333333-3333-4333-8333-333333333333";
constexpr const char* DS1 = "AAAAAAAA-AAAA-4AAA-8AAA-AAAAAAAAAAAA";
constexpr const char* DS2 = "BBBBBBBB-BBBB-4BBB-8BBB-BBBBBBBBBBBB";

std::string uuid(unsigned n) {
    char text[40];
    g_snprintf(text, sizeof text, "%08X-0000-4000-8000-%012X", n, n);
    return text;
}

class AccountStoreTest : public ::testing::Test {
protected:
    void SetUp() override { test::freshXDGFolders(); }

    static void writeFile(const std::string& text) {
        ASSERT_TRUE(Files::replaceAtomically(AppPaths::accountsFile(), text));
    }
    static json readFile() {
        auto bytes = Files::read(AppPaths::accountsFile(), 1 << 20);
        return bytes ? json::parse(*bytes, nullptr, false) : json();
    }
    // True when the next operation writes the file: it is removed first.
    template <typename Operation>
    static bool saves(Operation operation) {
        g_remove(AppPaths::accountsFile().c_str());
        operation();
        return Files::exists(AppPaths::accountsFile());
    }
    static json record(const char* id, const char* store, const char* service = nullptr, const char* avatar = nullptr) {
        json r = { { "id", id }, { "label", std::string("label-") + id }, { "dataStoreID", store }, { "colorSeed", 10 } };
        if (service)
            r["service"] = service;
        if (avatar)
            r["avatarFileName"] = avatar;
        return r;
    }
    // The contents of the copies kept beside accounts.json, sorted.
    static std::vector<std::string> keptCopies() {
        std::vector<std::string> contents;
        GCharPtr folder(g_path_get_dirname(AppPaths::accountsFile().c_str()));
        GDir* dir = g_dir_open(folder.get(), 0, nullptr);
        while (const char* name = dir ? g_dir_read_name(dir) : nullptr)
            if (g_str_has_prefix(name, "accounts.json.unreadable-"))
                contents.push_back(Files::read(std::string(folder.get()) + "/" + name, 1 << 20).value_or("?"));
        if (dir)
            g_dir_close(dir);
        std::sort(contents.begin(), contents.end());
        return contents;
    }
    static std::vector<std::string> ids(const AccountStore& store) {
        std::vector<std::string> out;
        for (const auto& a : store.accounts())
            out.push_back(a.id);
        return out;
    }
};

TEST_F(AccountStoreTest, StartsEmptyAndTheFirstAddCreatesFolderAndCompactFile) {
    std::string dir = AppPaths::dataHome() + "/Orvane";
    Files::removeTree(dir);
    AccountStore store;
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_FALSE(store.selectedAccountID());
    EXPECT_TRUE(store.alwaysAskOnMailto());
    EXPECT_FALSE(store.showDockBadge());
    EXPECT_FALSE(store.notificationsEnabled());
    EXPECT_FALSE(Files::exists(AppPaths::accountsFile())) << "construction never saves";

    const Account& added = store.addAccount();
    EXPECT_EQ(added.label, "New Account");
    EXPECT_FALSE(added.service);
    EXPECT_GE(added.colorSeed, 0);
    EXPECT_LE(added.colorSeed, 359);
    EXPECT_NE(added.id, added.dataStoreID);
    EXPECT_TRUE(canonicalUUID(added.id) == added.id) << "ids are canonical upper-case UUIDs";
    EXPECT_EQ(store.selectedAccountID(), added.id);

    auto bytes = Files::read(AppPaths::accountsFile(), 1 << 20);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->find('\n'), std::string::npos) << "compact JSON";
    json file = json::parse(*bytes);
    ASSERT_EQ(file["accounts"].size(), 1u);
    EXPECT_FALSE(file["accounts"][0].contains("service"));
    EXPECT_EQ(file["selectedAccountID"], added.id);
    EXPECT_FALSE(file.contains("defaultMailtoAccountID"));
    EXPECT_EQ(file["alwaysAskOnMailto"], true);
    EXPECT_EQ(file["showDockBadge"], false);
    EXPECT_EQ(file["notificationsEnabled"], false);

    const Account& outlook = store.addOutlookAccount();
    EXPECT_EQ(outlook.label, "Outlook");
    EXPECT_EQ(outlook.service, AccountService::Outlook);
    EXPECT_EQ(readFile()["accounts"][1]["service"], "outlook");
}

TEST_F(AccountStoreTest, ReadsTheListTolerantlyAndEverythingElseStrictly) {
    test::LoggedWarnings warnings;
    // One bad record among good ones is dropped on its own; missing settings
    // default. The file is kept aside before the save that drops the record.
    std::string partly = json({ { "accounts", { record(M1, DS1), record(M2, DS2, "exchange"), 42, record(C1, DS1, "calendar") } } }).dump();
    writeFile(partly);
    {
        AccountStore store;
        EXPECT_EQ(ids(store), (std::vector<std::string> { M1, C1 }));
        EXPECT_EQ(store.selectedAccountID(), M1) << "no stored selection: the first account";
        EXPECT_TRUE(store.alwaysAskOnMailto());
        store.save();
        EXPECT_EQ(keptCopies(), std::vector<std::string> { partly });
        json file = readFile();
        EXPECT_EQ(file["accounts"].size(), 2u);
        EXPECT_TRUE(file.contains("alwaysAskOnMailto") && file.contains("showDockBadge") && file.contains("notificationsEnabled"));
    }

    // Settings come back as saved.
    writeFile(json({ { "accounts", { record(M1, DS1) } }, { "selectedAccountID", M2 }, { "defaultMailtoAccountID", M1 },
        { "alwaysAskOnMailto", false }, { "showDockBadge", true }, { "notificationsEnabled", true }, { "future", "x" } }).dump());
    {
        AccountStore store;
        EXPECT_EQ(store.selectedAccountID(), M2) << "a selection may name a missing account";
        EXPECT_EQ(store.defaultMailtoAccountID(), M1);
        EXPECT_FALSE(store.alwaysAskOnMailto());
        EXPECT_TRUE(store.showDockBadge());
        EXPECT_TRUE(store.notificationsEnabled());
    }

    // Whole-file rejections: the state stays at its defaults and the file is
    // left alone; the next save keeps it aside (the newest three copies stay).
    std::string good = json({ { "accounts", { record(M1, DS1) } } }).dump();
    const std::vector<std::string> rejected = {
        json({ { "accounts", { record(M1, DS1) } }, { "selectedAccountID", "not-a-uuid" } }).dump(),
        json({ { "accounts", { record(M1, DS1) } }, { "showDockBadge", "yes" } }).dump(),
        json({ { "accounts", { record(M1, DS1) } }, { "defaultMailtoAccountID", 5 } }).dump(),
        json({ { "accounts", record(M1, DS1) } }).dump(),
        json({ { "selectedAccountID", M1 } }).dump(),
        good.substr(0, good.size() / 2),
        "not json at all",
        "[]",
        "",
        std::string("\xff\xfe{\"accounts\":[]}"),
    };
    for (const auto& text : rejected) {
        writeFile(text);
        AccountStore store;
        EXPECT_TRUE(store.accounts().empty()) << text;
        EXPECT_FALSE(store.selectedAccountID()) << text;
        EXPECT_TRUE(store.alwaysAskOnMailto()) << text;
        EXPECT_EQ(*Files::read(AppPaths::accountsFile(), 1 << 20), text) << "a bad file stays until the next save";
        warnings.clear();
        store.addAccount();
        EXPECT_EQ(readFile()["accounts"].size(), 1u) << "the next save replaces it";
        std::string warning = warnings.find("Kept the unreadable");
        ASSERT_NE(warning.rfind(" as "), std::string::npos) << "a warning names the copy";
        std::string kept = warning.substr(warning.rfind(" as ") + 4);
        EXPECT_TRUE(g_regex_match_simple("/accounts\\.json\\.unreadable-[0-9]{8}T[0-9]{6}Z(-[0-9]+)?$", kept.c_str(),
            GRegexCompileFlags(0), GRegexMatchFlags(0))) << warning;
        EXPECT_EQ(Files::read(kept, 1 << 20), text);
    }
    std::vector<std::string> newest(rejected.end() - 3, rejected.end());
    std::sort(newest.begin(), newest.end());
    EXPECT_EQ(keptCopies(), newest);

    // An enormous file is not read at all.
    std::string huge = "{\"accounts\":[" + json(record(M1, DS1)).dump() + "],\"pad\":\"" + std::string(AccountStore::kMaxFileBytes, 'x') + "\"}";
    writeFile(huge);
    AccountStore store;
    EXPECT_TRUE(store.accounts().empty());
}

TEST_F(AccountStoreTest, KeepsMailAccountsBeforeCalendarsAndSelectsWhatItAdds) {
    writeFile(json({ { "accounts", { record(C1, DS1, "calendar"), record(M1, DS1, "mail") } } }).dump());
    AccountStore store;
    EXPECT_EQ(ids(store), (std::vector<std::string> { M1, C1 }));
    EXPECT_EQ(store.selectedAccountID(), M1);

    std::string m2 = store.addAccount().id;
    EXPECT_EQ(ids(store), (std::vector<std::string> { M1, m2, C1 })) << "a new account goes in front of the calendars";
    store.select(1);
    EXPECT_EQ(store.selectedAccountID(), m2);

    // Companion of M1 with [M1, M2, C1]: inserted after M1, then partitioned.
    const Account m1 = *store.account(M1);
    const Account companion = store.addCalendar(m1);
    EXPECT_EQ(ids(store), (std::vector<std::string> { M1, m2, companion.id, C1 }));
    EXPECT_EQ(store.selectedAccountID(), companion.id);
    EXPECT_EQ(companion.dataStoreID, m1.dataStoreID);
    EXPECT_EQ(companion.label, m1.label);
    EXPECT_EQ(companion.colorSeed, m1.colorSeed);
    EXPECT_EQ(companion.service, AccountService::Calendar);
    EXPECT_EQ(store.mailAccounts().size(), 2u);
    EXPECT_EQ(store.calendarAccounts().size(), 2u);

    // A companion of an account the store does not know is appended (then partitioned).
    Account stranger = m1;
    stranger.id = M2;
    store.addCalendar(stranger);
    EXPECT_EQ(store.accounts().back().service, AccountService::Calendar);

    AccountStore reloaded;
    EXPECT_EQ(ids(reloaded), ids(store)) << "the order survives a restart";
}

TEST_F(AccountStoreTest, RemovingAnAccountKeepsWhatItsCompanionStillUses) {
    std::string avatar = "shared.png";
    writeFile(json({ { "accounts", { record(M1, DS1, nullptr, avatar.c_str()), record(M2, DS2), record(C1, DS1, "calendar", avatar.c_str()) } },
        { "selectedAccountID", M1 }, { "defaultMailtoAccountID", M1 } }).dump());
    std::string avatarPath = AppPaths::avatarsDir() + "/" + avatar;
    ASSERT_TRUE(Files::replaceAtomically(avatarPath, "png"));
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteDataDir(DS1) + "/cookies"));
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteCacheDir(DS1)));

    AccountStore store;
    std::vector<std::string> removedStores;
    store.setDataStoreRemover([&](const std::string& id) {
        removedStores.push_back(id);
        Files::removeTree(AppPaths::websiteDataDir(id));
    });
    store.setLastUsedSenderID(std::string(M1));

    store.remove(*store.account(M1));
    EXPECT_EQ(ids(store), (std::vector<std::string> { M2, C1 }));
    EXPECT_EQ(store.selectedAccountID(), M2) << "the selection moves to the first remaining account";
    EXPECT_FALSE(store.defaultMailtoAccountID());
    EXPECT_EQ(store.lastUsedSenderID(), M1) << "the last sender is left as it was";
    EXPECT_TRUE(Files::exists(avatarPath)) << "the companion still shows the photo";
    EXPECT_TRUE(removedStores.empty()) << "the companion still uses the session";
    EXPECT_FALSE(readFile().contains("defaultMailtoAccountID"));

    store.remove(*store.account(C1));
    EXPECT_FALSE(Files::exists(avatarPath));
    EXPECT_EQ(removedStores, std::vector<std::string> { DS1 });
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(DS1)));

    store.remove(*store.account(M2));
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_FALSE(store.selectedAccountID());
    EXPECT_FALSE(readFile().contains("selectedAccountID"));
}

TEST_F(AccountStoreTest, RemovalOnlyUnlinksTheAccountsOwnRegularFiles) {
    // What must survive every removal: a folder outside Orvane's, another
    // account's website data, and whatever in Avatars is not a regular file.
    const std::string outside = test::makeTempFolder("outside");
    ASSERT_TRUE(Files::replaceAtomically(outside + "/keep", "keep"));
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteDataDir(DS2) + "/cookies"));
    const std::string avatars = AppPaths::avatarsDir();
    ASSERT_TRUE(Files::makeFolder(avatars + "/folder.png/inner"));
    ASSERT_EQ(symlink(outside.c_str(), (avatars + "/link.png").c_str()), 0);
    ASSERT_TRUE(Files::replaceAtomically(avatars + "/own.png", "png"));
    // An account whose website data folder is a link to the outside folder.
    ASSERT_TRUE(Files::makeFolder(AppPaths::dataHome() + "/Orvane/WebsiteData"));
    ASSERT_EQ(symlink(outside.c_str(), AppPaths::websiteDataDir(uuid(5)).c_str()), 0);
    // And one with data and cache folders of its own, which go.
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteDataDir(uuid(4)) + "/deep/er"));
    ASSERT_TRUE(Files::makeFolder(AppPaths::websiteCacheDir(uuid(4))));

    const std::vector<std::string> names = { "../accounts.json", std::string("..\0.png", 7), "folder.png", "link.png", "own.png", "x" };
    json list = { record(M2, DS2) };
    for (unsigned i = 0; i < names.size(); ++i) {
        list.push_back(record(uuid(i).c_str(), uuid(i).c_str()));
        list.back()["avatarFileName"] = names[i];
    }
    writeFile(json({ { "accounts", list } }).dump());
    AccountStore store;
    ASSERT_EQ(store.accounts().size(), names.size() + 1);
    for (unsigned i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(i);
        store.remove(*store.account(uuid(i)));
        EXPECT_TRUE(Files::exists(outside + "/keep"));
        EXPECT_TRUE(Files::exists(AppPaths::websiteDataDir(DS2) + "/cookies"));
        EXPECT_TRUE(Files::exists(avatars + "/folder.png/inner"));
        EXPECT_TRUE(g_file_test((avatars + "/link.png").c_str(), G_FILE_TEST_IS_SYMLINK));
    }
    EXPECT_FALSE(Files::exists(avatars + "/own.png"));
    EXPECT_FALSE(g_file_test(AppPaths::websiteDataDir(uuid(5)).c_str(), G_FILE_TEST_IS_SYMLINK)) << "the link went";
    EXPECT_FALSE(Files::exists(AppPaths::websiteDataDir(uuid(4))));
    EXPECT_FALSE(Files::exists(AppPaths::websiteCacheDir(uuid(4))));
    EXPECT_EQ(ids(store), std::vector<std::string> { M2 });
}

// Labels come from page titles, photo addresses from pages and file names
// from the file: each is bounded before it is stored, a bad name is absent.
TEST_F(AccountStoreTest, ValuesFromPagesAndFilesAreBoundedBeforeTheyAreStored) {
    const std::string longestAddress(Account::kMaxPhotoAddressBytes, 'u');
    const std::string cutLabel(Account::kMaxLabelBytes - 1, 'l');
    struct Case {
        const char* key;
        std::string value;
        std::optional<std::string> stored;
    };
    const std::vector<Case> cases = {
        { "avatarFileName", "photo.png", "photo.png" },
        { "avatarFileName", std::string(255, 'n'), std::string(255, 'n') },
        { "avatarFileName", std::string(256, 'n'), std::nullopt },
        { "avatarFileName", std::string("..\0x.png", 8), std::nullopt },
        { "avatarFileName", "../x.png", std::nullopt },
        { "avatarFileName", "a/b.png", std::nullopt },
        { "avatarFileName", "..", std::nullopt },
        { "avatarFileName", ".", std::nullopt },
        { "avatarFileName", "", std::nullopt },
        { "avatarSourceURL", longestAddress, longestAddress },
        { "avatarSourceURL", longestAddress + "u", std::nullopt },
        { "label", cutLabel + "\u00e9", cutLabel }, // not inside a character
    };
    json list = json::array();
    for (unsigned i = 0; i < cases.size(); ++i) {
        list.push_back(record(uuid(i).c_str(), DS1));
        list.back()[cases[i].key] = cases[i].value;
    }
    writeFile(json({ { "accounts", list } }).dump());
    auto field = [](const Account& a, const std::string& key) -> std::optional<std::string> {
        return key == "label" ? std::optional(a.label) : key == "avatarFileName" ? a.avatarFileName : a.avatarSourceURL;
    };
    {
        AccountStore store;
        ASSERT_EQ(store.accounts().size(), cases.size()) << "a bad value costs the value, not the account";
        for (unsigned i = 0; i < cases.size(); ++i)
            EXPECT_EQ(field(*store.account(uuid(i)), cases[i].key), cases[i].stored) << i;

        // What a page hands over on the way in: by update and to a new calendar.
        Account paged = *store.account(uuid(0));
        paged.label = std::string(1 << 20, 'l');
        paged.avatarSourceURL = std::string(9 << 20, 'u');
        store.update(paged);
        const Account calendar = store.addCalendar(paged);
        for (const Account* a : { store.account(uuid(0)), store.account(calendar.id) }) {
            EXPECT_EQ(a->label.size(), Account::kMaxLabelBytes);
            EXPECT_FALSE(a->avatarSourceURL);
        }
    }
    AccountStore reloaded;
    EXPECT_EQ(reloaded.accounts().size(), cases.size() + 1) << "the file still loads";
}

// However the accounts grew, a file its own loader would refuse is never
// written: the old file stays.
TEST_F(AccountStoreTest, NeverWritesAFileItsLoaderWouldRefuse) {
    json full = record(M1, DS1);
    full["label"] = std::string(Account::kMaxLabelBytes, 'l');
    full["avatarSourceURL"] = std::string(Account::kMaxPhotoAddressBytes, 'u');
    full["avatarFileName"] = std::string(255, 'n');
    const size_t recordBytes = full.dump().size() + 1;
    json list = json::array();
    for (unsigned i = 0; i < (AccountStore::kMaxFileBytes - 16) / recordBytes; ++i) {
        list.push_back(full);
        list.back()["id"] = uuid(i);
    }
    writeFile(json({ { "accounts", list } }).dump());
    const std::string before = *Files::read(AppPaths::accountsFile(), AccountStore::kMaxFileBytes);
    ASSERT_GT(before.size() + recordBytes, AccountStore::kMaxFileBytes) << "one more account passes the limit";

    AccountStore store;
    ASSERT_EQ(store.accounts().size(), list.size());
    test::LoggedWarnings warnings;
    store.addCalendar(store.accounts().front());
    EXPECT_EQ(store.accounts().size(), list.size() + 1) << "kept in memory";
    EXPECT_EQ(Files::read(AppPaths::accountsFile(), 2 * AccountStore::kMaxFileBytes), before);
    EXPECT_NE(warnings.find("Not saving"), "");
    EXPECT_EQ(AccountStore().accounts().size(), list.size());
}

TEST_F(AccountStoreTest, OperationsThatChangeNothingDoNotSave) {
    writeFile(json({ { "accounts", { record(M1, DS1), record(M2, DS2), record(C1, DS1, "calendar") } } }).dump());
    AccountStore store;
    const Account first = store.accounts().front();
    const Account last = store.accounts().back();

    EXPECT_FALSE(saves([&] { store.move(first, -1); }));
    EXPECT_FALSE(saves([&] { store.move(last, 1); }));
    EXPECT_FALSE(saves([&] { store.select(9); }));
    EXPECT_FALSE(saves([&] { store.select(-1); }));
    Account unknown = first;
    unknown.id = "44444444-4444-4444-8444-444444444444";
    EXPECT_FALSE(saves([&] { store.update(unknown); }));
    EXPECT_FALSE(saves([&] { store.move(unknown, 1); }));
    EXPECT_FALSE(saves([&] { store.setShowDockBadge(true); })) << "direct assignment leaves saving to the caller";

    // A swap, not a rotation: the account in between stays.
    EXPECT_TRUE(saves([&] { store.move(first, 2); }));
    EXPECT_EQ(ids(store), (std::vector<std::string> { C1, M2, M1 }));
    EXPECT_TRUE(saves([&] { store.select(2); }));
    EXPECT_EQ(store.selectedAccountID(), M1);

    Account renamed = *store.account(M2);
    renamed.label = "someone@example.com";
    EXPECT_TRUE(saves([&] { store.update(renamed); }));
    EXPECT_EQ(store.account(M2)->label, "someone@example.com");
    EXPECT_EQ(ids(store), (std::vector<std::string> { C1, M2, M1 })) << "update and move keep the order they made";

    AccountStore reloaded;
    EXPECT_EQ(ids(reloaded), (std::vector<std::string> { M2, M1, C1 })) << "the next load restores the order";
}

TEST_F(AccountStoreTest, TellsObserversOfEveryChange) {
    AccountStore store;
    std::vector<unsigned> changes;
    auto subscription = store.observe([&](unsigned change) { changes.push_back(change); });

    store.addAccount();
    ASSERT_FALSE(changes.empty());
    unsigned all = 0;
    for (unsigned c : changes)
        all |= c;
    EXPECT_TRUE(all & StoreChangeAccounts);
    EXPECT_TRUE(all & StoreChangeSelection);

    changes.clear();
    store.setNotificationsEnabled(true);
    EXPECT_EQ(changes, std::vector<unsigned> { StoreChangeSettings });

    changes.clear();
    Account a = store.accounts().front();
    a.label = "renamed";
    store.update(a);
    EXPECT_EQ(changes, std::vector<unsigned> { StoreChangeAccounts });

    subscription.reset();
    changes.clear();
    store.setShowDockBadge(true);
    EXPECT_TRUE(changes.empty()) << "a dropped subscription hears nothing";
}

} // namespace
} // namespace orvane
