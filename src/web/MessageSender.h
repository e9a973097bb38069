#pragma once

#include <jsc/jsc.h>
#include <webkit/webkit.h>

#include <string_view>
#include <vector>

namespace orvane {

struct MailService;

// Tells which view sent a script message, and whether it may ask anything.
// Every account view has a WebKitUserContentManager of its own, so a message
// can only come from a page of the account whose content manager received
// it: its main view or one of its pop-ups. A pop-up is a related view and
// shares its opener's content manager, so its messages reach the opener's
// handlers: the handler alone cannot tell them apart. Orvane's page scripts
// therefore put the frame's stamp (PageStamp: `window.__orvanePage`) into
// each message, either as the whole body or as its `orvanePage` member:
//     window.webkit.messageHandlers.orvanePrint.postMessage(window.__orvanePage)
//     ...postMessage({ id, title, body, tag, orvanePage: window.__orvanePage })
// The stamp names the page and the origin of the posting frame.
struct MessageSender {
    static constexpr const char* kStampMember = "orvanePage";

    // The view among `views` (one account's main view and pop-ups) whose
    // page posted `body` to `handler`, or null, logged at info level: no
    // stamp, a stamp that does not verify, a page that is none of `views`
    // (another account's, a closed pop-up), a frame whose origin is not on
    // one of the service's own hosts, or a view showing a page elsewhere.
    static WebKitWebView* sender(const std::vector<WebKitWebView*>& views, const MailService& service,
        std::string_view handler, JSCValue* body);

    // Whether the page the view shows (PageAddress) is the service's own: an
    // address on one of its own hosts, or about:blank (also before the first
    // commit) and blob: pages, whose frames carry the origin that made them
    // and are judged by it.
    static bool showsOwnPage(WebKitWebView* view, const MailService& service);
};

} // namespace orvane
