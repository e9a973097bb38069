#include "accounts/AccountStore.h"

#include "accounts/AppPaths.h"
#include "base/Files.h"

#include <glib.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace orvane {

namespace {

int64_t randomColorSeed() {
    return g_random_int_range(0, 360);
}

void removeWebsiteData(const std::string& dataStoreID) {
    Files::removeTree(AppPaths::websiteDataDir(dataStoreID));
    Files::removeTree(AppPaths::websiteCacheDir(dataStoreID));
}

// The decoded file. Strict everywhere except inside "accounts".
struct Persisted {
    std::vector<Account> accounts;
    std::optional<std::string> selectedAccountID;
    std::optional<std::string> defaultMailtoAccountID;
    bool alwaysAskOnMailto = true;
    bool showDockBadge = false;
    bool notificationsEnabled = false;
};

bool optionalUUID(const nlohmann::json& root, const char* key, std::optional<std::string>& out) {
    auto it = root.find(key);
    if (it == root.end() || it->is_null())
        return true;
    if (!it->is_string())
        return false;
    out = canonicalUUID(it->get_ref<const std::string&>());
    return out.has_value();
}

bool optionalBool(const nlohmann::json& root, const char* key, bool& out) {
    auto it = root.find(key);
    if (it == root.end() || it->is_null())
        return true;
    if (!it->is_boolean())
        return false;
    out = it->get<bool>();
    return true;
}

std::optional<Persisted> decode(const std::string& bytes) {
    nlohmann::json root = nlohmann::json::parse(bytes, nullptr, /*allow_exceptions*/ false);
    if (!root.is_object())
        return std::nullopt;
    auto list = root.find("accounts");
    if (list == root.end() || !list->is_array())
        return std::nullopt;
    Persisted persisted;
    for (const auto& element : *list) {
        if (auto account = Account::fromJSON(element))
            persisted.accounts.push_back(std::move(*account));
    }
    if (!optionalUUID(root, "selectedAccountID", persisted.selectedAccountID)
        || !optionalUUID(root, "defaultMailtoAccountID", persisted.defaultMailtoAccountID)
        || !optionalBool(root, "alwaysAskOnMailto", persisted.alwaysAskOnMailto)
        || !optionalBool(root, "showDockBadge", persisted.showDockBadge)
        || !optionalBool(root, "notificationsEnabled", persisted.notificationsEnabled))
        return std::nullopt;
    return persisted;
}

} // namespace

AccountStore::AccountStore()
    : m_removeDataStore(removeWebsiteData) {
    load();
}

void AccountStore::load() {
    Files::removeLeftoverTemporaries(AppPaths::accountsFile());
    auto bytes = Files::read(AppPaths::accountsFile(), kMaxFileBytes);
    if (!bytes)
        return;
    auto persisted = decode(*bytes);
    if (!persisted)
        return;

    m_accounts = std::move(persisted->accounts);
    std::stable_partition(m_accounts.begin(), m_accounts.end(), [](const Account& a) { return a.isMailSide(); });
    if (persisted->selectedAccountID)
        m_selectedAccountID = persisted->selectedAccountID;
    else if (!m_accounts.empty())
        m_selectedAccountID = m_accounts.front().id;
    else
        m_selectedAccountID.reset();
    m_defaultMailtoAccountID = persisted->defaultMailtoAccountID;
    m_alwaysAskOnMailto = persisted->alwaysAskOnMailto;
    m_showDockBadge = persisted->showDockBadge;
    m_notificationsEnabled = persisted->notificationsEnabled;
    notify(StoreChangeAccounts | StoreChangeSelection | StoreChangeSettings);
}

void AccountStore::save() {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& account : m_accounts)
        list.push_back(account.toJSON());
    nlohmann::json root = { { "accounts", std::move(list) } };
    if (m_selectedAccountID)
        root["selectedAccountID"] = *m_selectedAccountID;
    if (m_defaultMailtoAccountID)
        root["defaultMailtoAccountID"] = *m_defaultMailtoAccountID;
    root["alwaysAskOnMailto"] = m_alwaysAskOnMailto;
    root["showDockBadge"] = m_showDockBadge;
    root["notificationsEnabled"] = m_notificationsEnabled;

    // Labels come from page titles: replace invalid UTF-8 rather than fail.
    std::string bytes = root.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    Files::replaceAtomically(AppPaths::accountsFile(), bytes);
}

void AccountStore::normalizeOrder() {
    std::stable_partition(m_accounts.begin(), m_accounts.end(), [](const Account& a) { return a.isMailSide(); });
    notify(StoreChangeAccounts);
}

const Account& AccountStore::insertNew(Account account, std::optional<size_t> after) {
    std::string id = account.id;
    if (after)
        m_accounts.insert(m_accounts.begin() + static_cast<std::ptrdiff_t>(*after) + 1, std::move(account));
    else
        m_accounts.push_back(std::move(account));
    normalizeOrder();
    setSelectedAccountID(id);
    save();
    return *this->account(id);
}

const Account& AccountStore::addAccount() {
    Account account;
    account.id = newUUID();
    account.dataStoreID = newUUID();
    account.label = "New Account";
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
    // Work on a copy: `account` may refer into the list.
    const Account removed = account;
    std::erase_if(m_accounts, [&](const Account& a) { return a.id == removed.id; });
    unsigned change = StoreChangeAccounts;
    if (m_selectedAccountID == removed.id) {
        m_selectedAccountID = m_accounts.empty() ? std::nullopt : std::optional(m_accounts.front().id);
        change |= StoreChangeSelection;
    }
    if (m_defaultMailtoAccountID == removed.id) {
        m_defaultMailtoAccountID.reset();
        change |= StoreChangeSettings;
    }
    notify(change);

    if (removed.avatarFileName) {
        bool shared = std::any_of(m_accounts.begin(), m_accounts.end(),
            [&](const Account& a) { return a.avatarFileName == removed.avatarFileName; });
        // The name comes from the file: never let it reach outside the folder.
        const std::string& name = *removed.avatarFileName;
        bool plainName = !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
        if (!shared && plainName)
            Files::removeTree(AppPaths::avatarsDir() + "/" + name);
    }
    bool storeShared = std::any_of(m_accounts.begin(), m_accounts.end(),
        [&](const Account& a) { return a.dataStoreID == removed.dataStoreID; });
    if (!storeShared && m_removeDataStore)
        m_removeDataStore(removed.dataStoreID);
    save();
}

void AccountStore::update(const Account& account) {
    for (auto& stored : m_accounts) {
        if (stored.id == account.id) {
            stored = Account(account);
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
