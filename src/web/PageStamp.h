#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// Orvane's web-process extension (src/webext) and the stamp it gives every
// frame. Each web process gets this run's secret key at start-up, through
// WebKit's own initialization data; the extension then defines, in every
// frame, a read-only `window.__orvanePage` holding the page's WebKit page id,
// the origin of the frame's document as the engine sees it, and a signature
// of both made with that key:
//     <page id>.<origin>.<HMAC-SHA256 of "<page id>.<origin>">
// Page scripts copy the stamp into their messages, and the UI side maps a
// verified stamp to the view whose webkit_web_view_get_page_id matches and
// checks the origin against the service's hosts. Pages never see the key, so
// no frame can make a stamp for another page's id or another origin.
struct PageStamp {
    struct Signed {
        uint64_t pageID = 0;
        std::string origin; // "scheme://host[:port]", or "null" for an opaque origin
    };

    // Has every web process of the default WebKitWebContext load the
    // extension from extensionDirectory(). Without one, Orvane runs without
    // the extension (a warning says why): pages get no stamp and no web
    // process gets the key, so stamped messages are refused. Safe to call
    // more than once; must run before the first view is created.
    static void installExtension();

    // The page id and origin a stamp speaks for, when its signature is right.
    static std::optional<Signed> verify(std::string_view stamp);

    // The stamp the extension would give a frame of this origin (for tests).
    static std::string make(uint64_t pageID, std::string_view origin);

    // Stamps longer than this are refused unread.
    static constexpr size_t kMaxLength = 1024;

    // The folder the extension is loaded from: ORVANE_WEBEXT_RELATIVE_DIR
    // from the folder of the running executable (/proc/self/exe), which is
    // the same in the build tree as in the installed layout. Nothing, with
    // a warning, when it is missing or another user could change its code
    // (TrustedFolder).
    static std::optional<std::string> extensionDirectory();
};

} // namespace orvane
