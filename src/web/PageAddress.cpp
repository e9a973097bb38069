#include "PageAddress.h"

namespace orvane {

namespace {

constexpr const char* kTrackedKey = "orvane-page-address-tracked";
constexpr const char* kAddressKey = "orvane-page-address";

void onLoadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer) {
    if (event != WEBKIT_LOAD_COMMITTED)
        return;
    const char* uri = webkit_web_view_get_uri(view);
    g_object_set_data_full(G_OBJECT(view), kAddressKey, g_strdup(uri ? uri : ""), g_free);
}

} // namespace

void PageAddress::track(WebKitWebView* view) {
    if (!view || g_object_get_data(G_OBJECT(view), kTrackedKey))
        return;
    g_object_set_data(G_OBJECT(view), kTrackedKey, GINT_TO_POINTER(1));
    // Connected to the view itself, with no data: it lives as long as the view.
    g_signal_connect(view, "load-changed", G_CALLBACK(onLoadChanged), nullptr);
}

const char* PageAddress::committed(WebKitWebView* view) {
    return view ? static_cast<const char*>(g_object_get_data(G_OBJECT(view), kAddressKey)) : nullptr;
}

} // namespace orvane
