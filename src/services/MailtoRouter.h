#pragma once

#include "AccountStore.h"
#include "MailtoComponents.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

namespace orvane {

// Carries a mailto: link from the desktop to one account's compose form. It
// decides the sending account (the default one when the user does not want
// to be asked, otherwise the one picked in the sender picker), makes it the
// selected and last-used account, and hands the link to the web layer. The
// window's side is three callbacks, so the decisions run without a window.
// Main thread only.
class MailtoRouter {
public:
    struct Hooks {
        // Bring the main window to the front.
        std::function<void()> present;
        // Open the compose form of the account's page (WebViewManager::compose).
        std::function<void(const Account&, const MailtoComponents&)> compose;
        // pendingMailto() was set, replaced or cleared: show, update or hide
        // the sender picker.
        std::function<void()> pendingChanged;
    };

    MailtoRouter(AccountStore& store, Hooks hooks);
    MailtoRouter(const MailtoRouter&) = delete;
    MailtoRouter& operator=(const MailtoRouter&) = delete;

    // Every URL the desktop opens with Orvane. Anything but a mail link is
    // ignored, and so is every link while there is no mail account (without
    // bringing the window forward). Otherwise the default sending account
    // composes at once, or the link waits for the picker; a link that arrives
    // while one waits replaces it.
    void handleOpenURL(std::string_view url);

    // Routes one link to one account: selects it, remembers it as the last
    // sender, saves, brings the window forward and opens the compose form.
    void compose(const Account& account, const MailtoComponents& mailto);

    // The link waiting for a sender choice; the picker shows while it exists.
    const std::optional<MailtoComponents>& pendingMailto() const { return m_pending; }
    // The picker's answers: compose the waiting link with the account, then
    // let it go; or only let it go.
    void pick(const Account& account);
    void cancel();

    // Longer links are not taken at all (browsers stop at about 2 MB too).
    static constexpr size_t kMaxURLBytes = 2 * 1024 * 1024;

private:
    void setPending(std::optional<MailtoComponents> mailto);

    // Borrowed references
    AccountStore& m_store;

    // Owned state
    Hooks m_hooks;
    std::optional<MailtoComponents> m_pending;
};

} // namespace orvane
