#pragma once

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {
class WebHost;
}

namespace orvane::ScriptDialogs {

// A page's alert, confirm or prompt, as a modal message dialog shows it.
struct Request {
    struct Response {
        std::string id;
        std::string label;
    };
    std::string message;             // the heading; there is no title or body text
    std::vector<Response> responses; // in the order they appear, left to right
    std::string defaultResponse;     // Enter
    std::string closeResponse;       // Escape, or the dialog closed without an answer
    // A one-line text field of kEntryWidth x kEntryHeight, filled with this.
    std::optional<std::string> entryText;
};

// The response chosen (closeResponse when the dialog went away unanswered)
// and, for a prompt, the field's text.
struct Answer {
    std::string response;
    std::string text;
};

using Completion = std::function<void(const Answer&)>;

constexpr const char* kOK = "ok";
constexpr const char* kCancel = "cancel";
constexpr int kEntryWidth = 280;
constexpr int kEntryHeight = 24;
// Longer page messages are cut (a page cannot make a screen-filling dialog).
constexpr size_t kMaxMessageBytes = 4000;

// The request for a script dialog of the given type: alert "OK"; confirm and
// prompt "OK" (the default) and "Cancel". Nothing for other types.
std::optional<Request> requestFor(WebKitScriptDialog* dialog);

// The script-dialog handler: shows alert, confirm and prompt through the
// host (the app shell's dialogs) and holds the page's script until the user
// answers (confirm is true exactly for "OK"; prompt gives the field's text
// for "OK" and null for "Cancel"). False (WebKit's own handling) for other
// dialogs or a host without dialogs.
bool run(WebKitWebView* view, WebKitScriptDialog* dialog, WebHost& host);

} // namespace orvane::ScriptDialogs
