#include "SenderChoice.h"

#include "GRef.h"

#include <glib/gi18n-lib.h>

namespace orvane::SenderChoice {

std::vector<Account> pickable(const AccountStore& store) {
    std::vector<Account> accounts = store.mailAccounts();
    if (accounts.size() > kMaxOffered)
        accounts.resize(kMaxOffered);
    return accounts;
}

std::optional<std::string> highlightedID(const AccountStore& store) {
    if (store.defaultMailtoAccountID())
        return store.defaultMailtoAccountID();
    if (store.lastUsedSenderID())
        return store.lastUsedSenderID();
    for (const Account& account : store.accounts()) {
        if (account.isMailSide())
            return account.id;
    }
    return std::nullopt;
}

std::optional<Account> forDigit(const AccountStore& store, int digit) {
    if (digit < 1 || digit > static_cast<int>(kMaxOffered))
        return std::nullopt;
    auto offered = pickable(store);
    if (static_cast<size_t>(digit) > offered.size())
        return std::nullopt;
    return offered[static_cast<size_t>(digit) - 1];
}

std::optional<Account> forReturn(const AccountStore& store) {
    auto id = highlightedID(store);
    if (!id)
        return std::nullopt;
    if (const Account* account = store.account(*id))
        return *account;
    return std::nullopt;
}

std::string recipientLine(const MailtoComponents& mailto) {
    if (mailto.to.empty())
        return _("To: New message");
    std::string addresses;
    for (size_t i = 0; i < mailto.to.size(); ++i) {
        if (i > 0)
            addresses += ", ";
        addresses += mailto.to[i];
    }
    GCharPtr line(g_strdup_printf(_("To: %s"), addresses.c_str()));
    return line.get();
}

std::string hint(size_t offeredCount) {
    // Translators: the keys of the sender picker; %zu is the number of the last account offered.
    GCharPtr text(g_strdup_printf(_("Press 1\u2013%zu  \u00b7  Return = default  \u00b7  Esc to cancel"), offeredCount));
    return text.get();
}

} // namespace orvane::SenderChoice
