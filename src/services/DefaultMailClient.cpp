#include "DefaultMailClient.h"

#include "BuildConfig.h"
#include "GRef.h"

#include <gio/gdesktopappinfo.h>

namespace orvane::DefaultMailClient {

namespace {

constexpr const char* kMailtoType = "x-scheme-handler/mailto";

bool isOrvaneID(const char* id) {
    return id && g_ascii_strcasecmp(id, desktopID().c_str()) == 0;
}

// Orvane's installed desktop file; one installed under another letter case
// of the same name counts too.
Ref<GAppInfo> orvaneAppInfo() {
    if (GDesktopAppInfo* info = g_desktop_app_info_new(desktopID().c_str()))
        return adopt(G_APP_INFO(info));
    GList* all = g_app_info_get_all();
    Ref<GAppInfo> found;
    for (GList* item = all; item; item = item->next) {
        auto* info = static_cast<GAppInfo*>(item->data);
        if (!found && isOrvaneID(g_app_info_get_id(info)))
            found = Ref<GAppInfo>(info);
    }
    g_list_free_full(all, g_object_unref);
    return found;
}

} // namespace

std::string desktopID() { return std::string(build::kAppID) + ".desktop"; }

bool isDefault() {
    auto handler = adopt(g_app_info_get_default_for_uri_scheme("mailto"));
    return handler && isOrvaneID(g_app_info_get_id(handler.get()));
}

bool makeDefault() {
    auto info = orvaneAppInfo();
    if (!info)
        return false;
    GErrorPtr error;
    return g_app_info_set_as_default_for_type(info.get(), kMailtoType, GErrorOut(error));
}

} // namespace orvane::DefaultMailClient
