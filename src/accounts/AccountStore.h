#pragma once

#include "Account.h"
#include "AccountsFile.h"
#include "Observers.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// What changed in a store notification (flags; several may be set).
enum StoreChange : unsigned {
    StoreChangeAccounts = 1u << 0,
    StoreChangeSelection = 1u << 1,
    StoreChangeSettings = 1u << 2,
    StoreChangeRemovals = 1u << 3, // pendingRemovals() changed
};

// The single source of truth for the accounts, the selection and the
// settings, kept in accounts.json. Every operation ends with save() (unless it
// changed nothing); setting a property directly notifies observers but does
// not save: the caller calls save() right after. Nothing here throws.
//
// Accounts are stored bounded (Account::bounded()), whatever the caller
// hands over. A save never writes a file that load() would refuse, and a file
// that load() could not read (wholly or in part) is kept aside as
// accounts.json.unreadable-<UTC time> before the next save replaces it.
// Failures are logged as warnings and leave the file on disk as it was.
//
// Removing an account can be undone: remove() takes it out of the list and
// saves accounts.json without it at once, but its photo, its website data and
// what others keep for it (the forgetter) stay until the removal is committed;
// undoRemoval() puts it back where it was. A removal neither committed nor
// undone when the store goes is committed then; the leftovers of one that a
// crash cut short go at the next start (removeOrphans()).
class AccountStore {
public:
    // Called with a dataStoreID whose website data no remaining account uses.
    using DataStoreRemover = std::function<void(const std::string& dataStoreID)>;
    // Called with the id of an account removed for good.
    using AccountForgetter = std::function<void(const std::string& accountID)>;

    // Loads accounts.json; never saves.
    AccountStore();
    ~AccountStore();
    AccountStore(const AccountStore&) = delete;
    AccountStore& operator=(const AccountStore&) = delete;

    void load();
    void save();

    const Account& addAccount();
    const Account& addOutlookAccount();
    const Account& addCalendar(const Account& mail);
    void remove(const Account& account);
    // Puts a pending removal back: the same account at its place among those
    // that followed it, selected and the default for email links again if it
    // was. False when the id names no pending removal.
    bool undoRemoval(const std::string& accountID);
    // Deletes what the removed account alone used (its photo and website
    // data, unless a remaining or pending account shares them) and tells the
    // forgetter.
    void commitRemoval(const std::string& accountID);
    void commitRemovals();
    // The removed accounts neither committed nor undone, oldest first.
    std::vector<Account> pendingRemovals() const;

    // At start, before any session is made: deletes the website data folders
    // and photos that no account in accounts.json names, among the names
    // Orvane gives them (WebsiteData/<canonical UUID>, Avatars/<UUID>-*.png).
    // Only when accounts.json was read whole: otherwise nothing is deleted
    // and it gives false.
    bool removeOrphans();
    void update(const Account& account);
    void move(const Account& account, int offset);
    void select(int index);

    const std::vector<Account>& accounts() const { return m_accounts; }
    std::vector<Account> mailAccounts() const;
    std::vector<Account> calendarAccounts() const;
    const Account* account(const std::string& id) const;

    const std::optional<std::string>& selectedAccountID() const { return m_selectedAccountID; }
    const std::optional<std::string>& defaultMailtoAccountID() const { return m_defaultMailtoAccountID; }
    const std::optional<std::string>& lastUsedSenderID() const { return m_lastUsedSenderID; }
    bool alwaysAskOnMailto() const { return m_alwaysAskOnMailto; }
    bool showDockBadge() const { return m_showDockBadge; }
    bool notificationsEnabled() const { return m_notificationsEnabled; }

    void setSelectedAccountID(std::optional<std::string> id);
    void setDefaultMailtoAccountID(std::optional<std::string> id);
    void setLastUsedSenderID(std::optional<std::string> id);
    void setAlwaysAskOnMailto(bool value);
    void setShowDockBadge(bool value);
    void setNotificationsEnabled(bool value);

    // Replaces the default remover (removeWebsiteData) so the web layer can
    // drop its live sessions first.
    void setDataStoreRemover(DataStoreRemover remover) { m_removeDataStore = std::move(remover); }
    // Deletes the website data and cache folders of a data store; an id that
    // is not a canonical UUID names no folder and nothing is deleted.
    static void removeWebsiteData(const std::string& dataStoreID);
    void setAccountForgetter(AccountForgetter forgetter) { m_forgetAccount = std::move(forgetter); }

    using ChangeObservers = Observers<unsigned /* StoreChange flags */>;
    [[nodiscard]] ChangeObservers::Subscription observe(ChangeObservers::Callback callback) {
        return m_observers.add(std::move(callback));
    }

    // Upper bound on the size of accounts.json that is read at all.
    static constexpr size_t kMaxFileBytes = AccountsFile::kMaxBytes;

private:
    struct PendingRemoval {
        Account account;
        std::vector<std::string> followers; // the ids after it when it went
        bool wasSelected = false;
        bool wasDefaultMailto = false;
    };

    void normalizeOrder();
    std::vector<PendingRemoval>::iterator pendingRemoval(const std::string& accountID);
    // Visits the accounts whose files must stay: those in the list and those pending removal.
    void forEachKept(const std::function<void(const Account&)>& visit) const;
    void deleteLeftovers(const Account& removed);
    const Account& insertNew(Account account, std::optional<size_t> after);
    void notify(unsigned change) { m_observers.notify(change); }

    // Owned state
    std::vector<Account> m_accounts;
    std::optional<std::string> m_selectedAccountID;
    std::optional<std::string> m_defaultMailtoAccountID;
    std::optional<std::string> m_lastUsedSenderID;
    bool m_alwaysAskOnMailto = true;
    bool m_showDockBadge = false;
    bool m_notificationsEnabled = false;
    bool m_keepFileOnDisk = false; // the file on disk could not be read
    bool m_readWhole = false;       // the file existed and every account in it was read
    std::vector<PendingRemoval> m_pending; // oldest first

    DataStoreRemover m_removeDataStore;
    AccountForgetter m_forgetAccount;
    ChangeObservers m_observers;
};

} // namespace orvane
