#pragma once

#include <jsc/jsc.h>
#include <webkit/webkit.h>

namespace orvane {

class WebViewManager;

// Tells which view sent a script message. A pop-up is a related view and
// shares its opener's WebKitUserContentManager, so its messages reach the
// opener's handlers: the handler alone cannot tell them apart. Orvane's page
// scripts therefore put the page's stamp (PageStamp: `window.__orvanePage`)
// into each message, either as the whole body or as its `orvanePage` member:
//     window.webkit.messageHandlers.orvanePrint.postMessage(window.__orvanePage)
//     ...postMessage({ id, title, body, tag, orvanePage: window.__orvanePage })
// Frames share their page's stamp, so a message from an embedded frame is
// the view's own.
struct MessageSender {
    static constexpr const char* kStampMember = "orvanePage";

    // The account main view or pop-up of `manager` whose page posted `body`,
    // or null: no stamp, a stamp that does not verify, or a page that is not
    // one of the manager's views any more.
    static WebKitWebView* sender(const WebViewManager& manager, JSCValue* body);
};

} // namespace orvane
