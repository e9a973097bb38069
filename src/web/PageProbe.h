#pragma once

#include <gio/gio.h>
#include <webkit/webkit.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace orvane {

// Asks a page a question by running one of Orvane's page scripts in it.
class PageProbe {
public:
    using Completion = std::function<void(std::optional<std::string> text)>;

    // Longest answer accepted: a data: address of a large photo is a few MB.
    static constexpr size_t kMaxTextBytes = 8 * 1024 * 1024;

    // Runs `body` as the body of an async function in the view's main frame,
    // in the page's own script world, with each entry of `arguments` in scope
    // as a variable of that name. When the promise settles the completion
    // runs on the main thread, exactly once, with the text the script
    // returned; an exception, a value that is not text, an empty text, a text
    // over kMaxTextBytes, cancellation or a view that went away give nothing.
    static void photoURL(WebKitWebView* view, const std::string& body,
        const std::map<std::string, std::string>& arguments, Completion completion,
        GCancellable* cancellable = nullptr, const std::string& sourceURI = {});
};

} // namespace orvane
