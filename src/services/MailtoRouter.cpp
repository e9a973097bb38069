#include "MailtoRouter.h"

namespace orvane {

MailtoRouter::MailtoRouter(AccountStore& store, Hooks hooks)
    : m_store(store)
    , m_hooks(std::move(hooks)) {}

void MailtoRouter::handleOpenURL(std::string_view url) {
    if (url.size() > kMaxURLBytes)
        return;
    auto mailto = MailtoComponents::fromURL(url);
    if (!mailto)
        return;
    if (m_store.mailAccounts().empty())
        return;
    if (m_hooks.present)
        m_hooks.present();

    if (!m_store.alwaysAskOnMailto() && m_store.defaultMailtoAccountID()) {
        if (const Account* account = m_store.account(*m_store.defaultMailtoAccountID())) {
            Account sender = *account; // compose() changes the store
            compose(sender, *mailto);
            return;
        }
    }
    setPending(std::move(mailto));
}

void MailtoRouter::compose(const Account& account, const MailtoComponents& mailto) {
    m_store.setSelectedAccountID(account.id);
    m_store.setLastUsedSenderID(account.id);
    m_store.save();
    if (m_hooks.present)
        m_hooks.present();
    if (m_hooks.compose)
        m_hooks.compose(account, mailto);
}

void MailtoRouter::pick(const Account& account) {
    if (!m_pending)
        return;
    MailtoComponents mailto = *m_pending;
    Account sender = account;
    compose(sender, mailto);
    setPending(std::nullopt);
}

void MailtoRouter::cancel() {
    if (m_pending)
        setPending(std::nullopt);
}

void MailtoRouter::setPending(std::optional<MailtoComponents> mailto) {
    m_pending = std::move(mailto);
    if (m_hooks.pendingChanged)
        m_hooks.pendingChanged();
}

} // namespace orvane
