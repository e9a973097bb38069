#pragma once

#include "Account.h"
#include "MailService.h"

#include <webkit/webkit.h>

namespace orvane {

// Something a layer above the web sessions adds to every account's views:
// page scripts, receivers of their messages, context-menu items, drop
// targets. The WebViewManager owns its extensions and calls them as views
// come and go; an extension keeps its per-view state on the views. Main
// thread only.
class ViewExtension {
public:
    virtual ~ViewExtension() = default;

    // The account's content manager, before its view exists: the place for
    // user scripts.
    virtual void prepareContent(WebKitUserContentManager* content, const Account& account) { }
    // The account's main view, right after it is made and before it loads.
    virtual void viewCreated(WebKitWebView* view, const Account& account, const MailService& service) { }
    // A pop-up one of the account's pages opened, before it loads.
    virtual void popupOpened(WebKitWebView* popup, WebKitWebView* owner, const Account& account,
        const MailService& service) { }
};

} // namespace orvane
