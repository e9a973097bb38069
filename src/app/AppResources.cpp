#include "AppResources.h"

#include <mutex>

extern "C" void orvane_ui_register_resource(void);

namespace orvane {

void ensureUIResources() {
    // Registering a bundle twice corrupts GLib's list of static resources.
    static std::once_flag registered;
    std::call_once(registered, [] { orvane_ui_register_resource(); });
}

} // namespace orvane
