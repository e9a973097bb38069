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
    // extension from the build folder (when it exists) or the install folder.
    // Safe to call more than once; must run before the first view is created.
    static void installExtension();

    // The page id and origin a stamp speaks for, when its signature is right.
    static std::optional<Signed> verify(std::string_view stamp);

    // The stamp the extension would give a frame of this origin (for tests).
    static std::string make(uint64_t pageID, std::string_view origin);

    // Stamps longer than this are refused unread.
    static constexpr size_t kMaxLength = 1024;

    // The folder the extension is loaded from.
    static std::string extensionDirectory();
};

} // namespace orvane
