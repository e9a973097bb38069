#include "AccountStore.h"

#include "AccountsFile.h"
#include "AppPaths.h"
#include "Files.h"

#include <glib.h>
#include <glib/gi18n-lib.h>

#include <algorithm>
#include <set>
#include <utility>

namespace orvane {

namespace {

int64_t randomColorSeed() {
    return g_random_int_range(0, 360);
}

// How many copies of unreadable files stay beside accounts.json.
constexpr size_t kKeptUnreadableFiles = 3;

} // namespace

void AccountStore::removeWebsiteData(const std::string& dataStoreID) {
    // Only a canonical UUID names a folder: anything else could reach outside WebsiteData.
    auto canonical = canonicalUUID(dataStoreID);
    if (!canonical || *canonical != dataStoreID)
        return;
    Files::removeTree(AppPaths::websiteDataDir(dataStoreID));
    Files::removeTree(AppPaths::websiteCacheDir(dataStoreID));
}

AccountStore::AccountStore()
    : m_removeDataStore(&AccountStore::removeWebsiteData) {
    load();
}

// Quitting commits what is still pending; nobody is told any more.
AccountStore::~AccountStore() {
    for (const PendingRemoval& pending : std::exchange(m_pending, {}))
        deleteLeftovers(pending.account);
}

void AccountStore::load() {
    const std::string path = AppPaths::accountsFile();
    Files::removeLeftoverTemporaries(path);
    if (!Files::exists(path))
        return;
    auto bytes = Files::read(path, kMaxFileBytes);
    auto file = bytes ? AccountsFile::decode(*bytes) : std::nullopt;
    // Whatever could not be read is kept aside before the next save replaces it.
    m_keepFileOnDisk = !file || file->skippedRecords > 0;
    m_readWhole = !m_keepFileOnDisk;
    if (!file) {
        g_warning("Could not %s %s; it is kept aside when Orvane next saves", bytes ? "decode" : "read", path.c_str());
        return;
    }
    if (file->skippedRecords > 0)
        g_warning("Left out %zu unreadable accounts of %s; it is kept aside when Orvane next saves",
            file->skippedRecords, path.c_str());

    m_accounts = std::move(file->accounts);
    std::stable_partition(m_accounts.begin(), m_accounts.end(), [](const Account& a) { return a.isMailSide(); });
    if (file->selectedAccountID)
        m_selectedAccountID = file->selectedAccountID;
    else if (!m_accounts.empty())
        m_selectedAccountID = m_accounts.front().id;
    else
        m_selectedAccountID.reset();
    m_defaultMailtoAccountID = file->defaultMailtoAccountID;
    m_alwaysAskOnMailto = file->alwaysAskOnMailto;
    m_showDockBadge = file->showDockBadge;
    m_notificationsEnabled = file->notificationsEnabled;
    notify(StoreChangeAccounts | StoreChangeSelection | StoreChangeSettings);
}

void AccountStore::save() {
    AccountsFile file;
    file.accounts = m_accounts;
    file.selectedAccountID = m_selectedAccountID;
    file.defaultMailtoAccountID = m_defaultMailtoAccountID;
    file.alwaysAskOnMailto = m_alwaysAskOnMailto;
    file.showDockBadge = m_showDockBadge;
    file.notificationsEnabled = m_notificationsEnabled;
    std::string bytes = file.encode();
    const std::string path = AppPaths::accountsFile();

    // Never a file the next start would not load: the old one is better.
    if (!AccountsFile::decode(bytes)) {
        g_warning("Not saving %s: the new content (%zu bytes) would not load again; the file stays as it was",
            path.c_str(), bytes.size());
        return;
    }
    if (m_keepFileOnDisk) {
        auto kept = Files::keepAside(path, "unreadable", kKeptUnreadableFiles);
        if (!kept && Files::exists(path)) {
            g_warning("Not saving %s: the unreadable file there could not be kept aside", path.c_str());
            return;
        }
        if (kept)
            g_warning("Kept the unreadable %s as %s", path.c_str(), kept->c_str());
        m_keepFileOnDisk = false;
    }
    Files::replaceAtomically(path, bytes);
}

void AccountStore::normalizeOrder() {
    std::stable_partition(m_accounts.begin(), m_accounts.end(), [](const Account& a) { return a.isMailSide(); });
    notify(StoreChangeAccounts);
}

const Account& AccountStore::insertNew(Account account, std::optional<size_t> after) {
    std::string id = account.id;
    if (after)
        m_accounts.insert(m_accounts.begin() + static_cast<std::ptrdiff_t>(*after) + 1, account.bounded());
    else
        m_accounts.push_back(account.bounded());
    normalizeOrder();
    setSelectedAccountID(id);
    save();
    return *this->account(id);
}

const Account& AccountStore::addAccount() {
    Account account;
    account.id = newUUID();
    account.dataStoreID = newUUID();
    account.label = _("New Account");
    account.colorSeed = randomColorSeed();
    return insertNew(std::move(account), std::nullopt);
}

const Account& AccountStore::addOutlookAccount() {
    Account account;
    account.id = newUUID();
    account.dataStoreID = newUUID();
    account.label = "Outlook";
    account.colorSeed = randomColorSeed();
    account.service = AccountService::Outlook;
    return insertNew(std::move(account), std::nullopt);
}

const Account& AccountStore::addCalendar(const Account& mail) {
    Account account;
    account.id = newUUID();
    account.label = mail.label;
    account.dataStoreID = mail.dataStoreID;
    account.avatarFileName = mail.avatarFileName;
    account.avatarSourceURL = mail.avatarSourceURL;
    account.colorSeed = mail.colorSeed;
    account.service = AccountService::Calendar;
    std::optional<size_t> position;
    for (size_t i = 0; i < m_accounts.size(); ++i) {
        if (m_accounts[i].id == mail.id) {
            position = i;
            break;
        }
    }
    return insertNew(std::move(account), position);
}

void AccountStore::remove(const Account& account) {
    auto it = std::find_if(m_accounts.begin(), m_accounts.end(), [&](const Account& a) { return a.id == account.id; });
    if (it == m_accounts.end())
        return;
    // Work on the stored record: `account` may refer into the list, and only
    // what the store holds (bounded, names checked) may name files.
    PendingRemoval pending { *it, {}, m_selectedAccountID == it->id, m_defaultMailtoAccountID == it->id };
    std::transform(it + 1, m_accounts.end(), std::back_inserter(pending.followers), [](const Account& a) { return a.id; });
    m_accounts.erase(it);
    unsigned change = StoreChangeAccounts | StoreChangeRemovals;
    if (pending.wasSelected) {
        m_selectedAccountID = m_accounts.empty() ? std::nullopt : std::optional(m_accounts.front().id);
        change |= StoreChangeSelection;
    }
    if (pending.wasDefaultMailto) {
        m_defaultMailtoAccountID.reset();
        change |= StoreChangeSettings;
    }
    m_pending.push_back(std::move(pending));
    notify(change);
    save();
}

std::vector<AccountStore::PendingRemoval>::iterator AccountStore::pendingRemoval(const std::string& accountID) {
    return std::find_if(m_pending.begin(), m_pending.end(), [&](const PendingRemoval& p) { return p.account.id == accountID; });
}

void AccountStore::forEachKept(const std::function<void(const Account&)>& visit) const {
    std::for_each(m_accounts.begin(), m_accounts.end(), visit);
    for (const PendingRemoval& pending : m_pending)
        visit(pending.account);
}

bool AccountStore::undoRemoval(const std::string& accountID) {
    auto it = pendingRemoval(accountID);
    if (it == m_pending.end())
        return false;
    PendingRemoval pending = std::move(*it);
    m_pending.erase(it);
    // Before the first of its followers still there: undoing in any order
    // gives back the order the removals started from.
    auto at = m_accounts.end();
    for (const std::string& follower : pending.followers) {
        at = std::find_if(m_accounts.begin(), m_accounts.end(), [&](const Account& a) { return a.id == follower; });
        if (at != m_accounts.end())
            break;
    }
    m_accounts.insert(at, pending.account);
    std::stable_partition(m_accounts.begin(), m_accounts.end(), [](const Account& a) { return a.isMailSide(); });
    unsigned change = StoreChangeAccounts | StoreChangeRemovals;
    if (pending.wasSelected || !m_selectedAccountID) {
        m_selectedAccountID = accountID;
        change |= StoreChangeSelection;
    }
    if (pending.wasDefaultMailto && !m_defaultMailtoAccountID) {
        m_defaultMailtoAccountID = accountID;
        change |= StoreChangeSettings;
    }
    notify(change);
    save();
    return true;
}

void AccountStore::commitRemoval(const std::string& accountID) {
    auto it = pendingRemoval(accountID);
    if (it == m_pending.end())
        return;
    const Account removed = std::move(it->account);
    m_pending.erase(it);
    deleteLeftovers(removed);
    notify(StoreChangeRemovals);
}

void AccountStore::commitRemovals() {
    while (!m_pending.empty())
        commitRemoval(m_pending.front().account.id);
}

std::vector<Account> AccountStore::pendingRemovals() const {
    std::vector<Account> accounts;
    std::transform(m_pending.begin(), m_pending.end(), std::back_inserter(accounts), [](const PendingRemoval& p) { return p.account; });
    return accounts;
}

// A pending removal may still come back: what it shares stays too.
void AccountStore::deleteLeftovers(const Account& removed) {
    auto used = [&](auto member) {
        bool found = false;
        forEachKept([&](const Account& a) { found = found || a.*member == removed.*member; });
        return found;
    };
    if (removed.avatarFileName && !used(&Account::avatarFileName))
        Files::removeFile(AppPaths::avatarsDir(), *removed.avatarFileName);
    if (!used(&Account::dataStoreID) && m_removeDataStore)
        m_removeDataStore(removed.dataStoreID);
    if (m_forgetAccount)
        m_forgetAccount(removed.id);
}

bool AccountStore::removeOrphans() {
    if (!m_readWhole)
        return false;
    std::set<std::string> stores, photos;
    forEachKept([&](const Account& a) {
        stores.insert(a.dataStoreID);
        if (a.avatarFileName)
            photos.insert(*a.avatarFileName);
    });
    auto isUUID = [](std::string_view name) { return canonicalUUID(name) == name; };
    std::set<std::string> orphans;
    for (const std::string& home : { AppPaths::dataHome(), AppPaths::cacheHome() }) {
        for (const std::string& name : Files::names(home + "/Orvane/WebsiteData"))
            if (isUUID(name) && !stores.contains(name))
                orphans.insert(name);
    }
    for (const std::string& dataStoreID : orphans) {
        g_debug("Deleting the website data of a removed account");
        if (m_removeDataStore)
            m_removeDataStore(dataStoreID);
    }
    const std::string avatars = AppPaths::avatarsDir();
    for (const std::string& name : Files::names(avatars)) {
        constexpr size_t kUUIDLength = 36;
        bool ours = name.size() > kUUIDLength + 5 && name[kUUIDLength] == '-' && name.ends_with(".png")
            && isUUID(std::string_view(name).substr(0, kUUIDLength));
        if (ours && !photos.contains(name))
            Files::removeFile(avatars, name);
    }
    return true;
}

void AccountStore::update(const Account& account) {
    for (auto& stored : m_accounts) {
        if (stored.id == account.id) {
            stored = account.bounded();
            notify(StoreChangeAccounts);
            save();
            return;
        }
    }
}

void AccountStore::move(const Account& account, int offset) {
    auto it = std::find_if(m_accounts.begin(), m_accounts.end(), [&](const Account& a) { return a.id == account.id; });
    if (it == m_accounts.end())
        return;
    auto i = static_cast<int64_t>(it - m_accounts.begin());
    int64_t j = i + offset;
    if (j < 0 || j >= static_cast<int64_t>(m_accounts.size()))
        return;
    std::swap(m_accounts[static_cast<size_t>(i)], m_accounts[static_cast<size_t>(j)]);
    notify(StoreChangeAccounts);
    save();
}

void AccountStore::select(int index) {
    if (index < 0 || static_cast<size_t>(index) >= m_accounts.size())
        return;
    setSelectedAccountID(m_accounts[static_cast<size_t>(index)].id);
    save();
}

std::vector<Account> AccountStore::mailAccounts() const {
    std::vector<Account> result;
    std::copy_if(m_accounts.begin(), m_accounts.end(), std::back_inserter(result), [](const Account& a) { return a.isMailSide(); });
    return result;
}

std::vector<Account> AccountStore::calendarAccounts() const {
    std::vector<Account> result;
    std::copy_if(m_accounts.begin(), m_accounts.end(), std::back_inserter(result), [](const Account& a) { return a.isCalendar(); });
    return result;
}

const Account* AccountStore::account(const std::string& id) const {
    for (const auto& a : m_accounts)
        if (a.id == id)
            return &a;
    return nullptr;
}

void AccountStore::setSelectedAccountID(std::optional<std::string> id) {
    m_selectedAccountID = std::move(id);
    notify(StoreChangeSelection);
}

void AccountStore::setDefaultMailtoAccountID(std::optional<std::string> id) {
    m_defaultMailtoAccountID = std::move(id);
    notify(StoreChangeSettings);
}

void AccountStore::setLastUsedSenderID(std::optional<std::string> id) {
    m_lastUsedSenderID = std::move(id);
    notify(StoreChangeSettings);
}

void AccountStore::setAlwaysAskOnMailto(bool value) {
    m_alwaysAskOnMailto = value;
    notify(StoreChangeSettings);
}

void AccountStore::setShowDockBadge(bool value) {
    m_showDockBadge = value;
    notify(StoreChangeSettings);
}

void AccountStore::setNotificationsEnabled(bool value) {
    m_notificationsEnabled = value;
    notify(StoreChangeSettings);
}

} // namespace orvane
