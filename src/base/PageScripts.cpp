#include "PageScripts.h"

#include "GRef.h"

#include <gio/gio.h>

#include <map>
#include <mutex>

extern "C" void orvane_scripts_register_resource(void);

namespace orvane::PageScripts {

static constexpr std::string_view kPrefix = "/app/orvane/Orvane/";

std::string_view text(std::string_view name) {
    static std::once_flag registered;
    std::call_once(registered, [] { orvane_scripts_register_resource(); });

    // Scripts are read on the main thread only; the cache keeps each text alive
    // for the rest of the run so views into it stay valid.
    static std::map<std::string, std::string, std::less<>> cache;
    if (auto it = cache.find(name); it != cache.end())
        return it->second;

    std::string path = std::string(kPrefix) + std::string(name);
    GBytesPtr bytes(g_resources_lookup_data(path.c_str(), G_RESOURCE_LOOKUP_FLAGS_NONE, nullptr));
    if (!bytes)
        return {};
    gsize size = 0;
    auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
    auto [it, inserted] = cache.emplace(std::string(name), std::string(data, size));
    return it->second;
}

std::string sourceURI(std::string_view name) {
    return "resource://" + std::string(kPrefix) + std::string(name);
}

} // namespace orvane::PageScripts
