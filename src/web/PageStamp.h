#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// Orvane's web-process extension (src/webext) and the stamp it gives every
// page. Each web process gets this run's secret key at start-up, through
// WebKit's own initialization data; the extension then defines, in every
// frame of a page, a read-only `window.__orvanePage` holding the page's
// WebKit page id and a signature of it made with that key. Page scripts copy
// the stamp into their messages, and the UI side maps a verified stamp to the
// view whose webkit_web_view_get_page_id matches. Pages never see the key, so
// no page can make a stamp for another page's id.
struct PageStamp {
    // Has every web process of the default WebKitWebContext load the
    // extension from the build folder (when it exists) or the install folder.
    // Safe to call more than once; must run before the first view is created.
    static void installExtension();

    // The page id a stamp speaks for, when its signature is right.
    static std::optional<uint64_t> verify(std::string_view stamp);

    // The stamp the extension would give this page id (for tests).
    static std::string make(uint64_t pageID);

    // The folder the extension is loaded from.
    static std::string extensionDirectory();
};

} // namespace orvane
