#pragma once

#include <webkit/webkit.h>

#include <string_view>
#include <vector>

namespace orvane {

// What Orvane installs on every account view's WebKitUserContentManager, in
// this order. A bridge plugs in by giving its script a file (the name below,
// under src/) and its receiver to WebViewManager::setMessageReceiver; a script
// whose file does not exist yet is skipped.
struct PageBridges {
    struct Item {
        enum class Kind { Handler, Script };
        Kind kind;
        std::string_view name; // handler name, or the script's resource name
        WebKitUserScriptInjectionTime time = WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START;
        // A fresh script object for each view; otherwise one per run, shared.
        bool perView = false;
    };

    static constexpr std::string_view kNotifyHandler = "orvaneNotify";
    static constexpr std::string_view kPrintHandler = "orvanePrint";
    static constexpr std::string_view kContextImageHandler = "orvaneContextImage";

    static const std::vector<Item>& items();

    // The user script for an item (all frames), or null when its file is
    // missing or empty. Shared items are built once per run. The caller owns
    // the returned reference.
    static WebKitUserScript* script(const Item& item);
};

} // namespace orvane
