#pragma once

#include <webkit/webkit.h>

namespace orvane {

// The address of the page a view really shows: the one its last load
// committed. webkit_web_view_get_uri turns to the next load's address before
// that load commits (when it is redirected, or started by the application),
// while the old page still runs and can still set its title or post
// messages, so it cannot say whose page that is.
struct PageAddress {
    // Starts following the view's commits (once per view; later calls do nothing).
    static void track(WebKitWebView* view);
    // The address of the last committed load, or null before the first one
    // (the view's initial empty document) or when the view is not tracked.
    static const char* committed(WebKitWebView* view);
};

} // namespace orvane
