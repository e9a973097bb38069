#pragma once

#include "NotificationRelay.h"
#include "PrintSupport.h"
#include "ViewExtension.h"

#include <memory>

namespace orvane {

class PendingDrops;
class WebViewManager;

// Everything the bridges add to every account view, as one of the
// WebViewManager's extensions: the page scripts (PageBridges), the desktop
// notifications relayed from the pages, printing, image saving and dropped
// files. The application adds one to its manager. Main thread only.
class AccountBridges final : public ViewExtension {
public:
    // The manager owns the bridges and outlives them.
    explicit AccountBridges(WebViewManager& manager);
    ~AccountBridges() override;
    AccountBridges(const AccountBridges&) = delete;
    AccountBridges& operator=(const AccountBridges&) = delete;

    void prepareContent(WebKitUserContentManager* content, const Account& account) override;
    void viewCreated(WebKitWebView* view, const Account& account, const MailService& service) override;
    void popupOpened(WebKitWebView* popup, WebKitWebView* owner, const Account& account,
        const MailService& service) override;

    // Shows the pages' notifications on the desktop and takes the clicks on
    // them back to the pages.
    NotificationRelay& notifications() { return m_notifications; }
    // Prints the pop-up in front, else the selected account's page.
    void printSelected();
    // Files dropped on the views, waiting for a file chooser.
    PendingDrops& pendingDrops() { return *m_drops; }

private:
    // Borrowed references
    WebViewManager& m_manager;

    // Owned references
    NotificationRelay m_notifications;
    PrintSupport m_print;
    std::shared_ptr<PendingDrops> m_drops; // the views' drop attachments hold it weakly
};

} // namespace orvane
