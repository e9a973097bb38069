#include "AccountBridges.h"

#include "DropAttach.h"
#include "PageBridges.h"
#include "PendingDrops.h"
#include "SaveImageWebView.h"
#include "WebViewManager.h"

namespace orvane {

AccountBridges::AccountBridges(WebViewManager& manager)
    : m_manager(manager)
    , m_notifications(manager)
    , m_drops(std::make_shared<PendingDrops>()) {
    m_print.serve(manager);
    SaveImageWebView::serve(manager);
}

AccountBridges::~AccountBridges() {
    m_manager.setMessageReceiver(std::string(PageBridges::kPrintHandler), {});
    m_manager.setMessageReceiver(std::string(PageBridges::kContextImageHandler), {});
}

void AccountBridges::prepareContent(WebKitUserContentManager* content, const Account&) {
    for (const auto& item : PageBridges::items()) {
        if (item.kind != PageBridges::Item::Kind::Script)
            continue;
        if (WebKitUserScript* script = PageBridges::script(item)) {
            webkit_user_content_manager_add_script(content, script);
            webkit_user_script_unref(script);
        }
    }
}

void AccountBridges::viewCreated(WebKitWebView* view, const Account& account, const MailService& service) {
    SaveImageWebView::enable(view, account.service, m_manager.host());
    DropAttach::attach(view, service, m_drops, m_manager.host());
}

void AccountBridges::popupOpened(WebKitWebView* popup, WebKitWebView* owner, const Account&, const MailService& service) {
    // Files dropped on a pop-up attach in the pop-up's page; files dropped
    // on the account's main view may attach there too.
    DropAttach::attach(popup, service, m_drops, m_manager.host(), owner);
}

void AccountBridges::printSelected() {
    AccountStore* store = m_manager.store();
    if (!store)
        return;
    // Any account's pop-up in front is printed instead.
    for (const Account& account : store->accounts()) {
        for (WebKitWebView* popup : m_manager.popupViews(account.id)) {
            GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(popup));
            if (root && GTK_IS_WINDOW(root) && gtk_window_is_active(GTK_WINDOW(root))) {
                m_print.print(popup, PrintSupport::Asker::User);
                return;
            }
        }
    }
    if (!store->selectedAccountID())
        return;
    if (WebKitWebView* view = m_manager.webView(*store->selectedAccountID()))
        m_print.print(view, PrintSupport::Asker::User);
}

} // namespace orvane
