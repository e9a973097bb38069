#include "PageBridges.h"

#include "PageScripts.h"
#include "BridgeScripts.h"

#include <map>
#include <string>

namespace orvane {

const std::vector<PageBridges::Item>& PageBridges::items() {
    using Kind = Item::Kind;
    static const std::vector<Item> table = {
        { Kind::Handler, kNotifyHandler },
        { Kind::Script, "bridges/notification-shim.js", WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START },
        { Kind::Script, "bridges/table-paste.js", WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_END },
        { Kind::Handler, kPrintHandler },
        { Kind::Script, "bridges/print-override.js", WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START },
        { Kind::Script, "bridges/input-taming.js", WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START },
        { Kind::Handler, kContextImageHandler },
        { Kind::Script, "bridges/context-menu-probe.js", WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, true },
    };
    return table;
}

static WebKitUserScript* newScript(const PageBridges::Item& item) {
    std::string_view text = BridgeScripts::text(item.name);
    if (text.empty())
        return nullptr;
    return webkit_user_script_new(std::string(text).c_str(), WEBKIT_USER_CONTENT_INJECT_ALL_FRAMES, item.time, nullptr,
        nullptr);
}

WebKitUserScript* PageBridges::script(const Item& item) {
    if (item.kind != Item::Kind::Script)
        return nullptr;
    if (item.perView)
        return newScript(item);
    // Main thread only; the shared scripts live for the rest of the run.
    static std::map<std::string, WebKitUserScript*, std::less<>> shared;
    auto it = shared.find(item.name);
    if (it == shared.end())
        it = shared.emplace(std::string(item.name), newScript(item)).first;
    return it->second ? webkit_user_script_ref(it->second) : nullptr;
}

} // namespace orvane
