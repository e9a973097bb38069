#include "BridgeScripts.h"

#include "PageScripts.h"

#include <mutex>

extern "C" void orvane_bridge_scripts_register_resource(void);

namespace orvane::BridgeScripts {

std::string_view text(std::string_view name) {
    // Registering a bundle twice corrupts GLib's list of static resources.
    static std::once_flag registered;
    std::call_once(registered, [] { orvane_bridge_scripts_register_resource(); });
    return PageScripts::text(name);
}

} // namespace orvane::BridgeScripts
