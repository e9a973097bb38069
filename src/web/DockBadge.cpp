#include "DockBadge.h"

#include "GRef.h"

#include <gio/gio.h>

namespace orvane {

namespace {

// The session bus, looked up once; null when there is none.
GDBusConnection* sessionBus() {
    static GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    return bus;
}

} // namespace

void DockBadge::set(int64_t total) {
    GDBusConnection* bus = sessionBus();
    if (!bus || g_dbus_connection_is_closed(bus))
        return;
    if (total < 0)
        total = 0;
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&properties, "{sv}", "count", g_variant_new_int64(total));
    g_variant_builder_add(&properties, "{sv}", "count-visible", g_variant_new_boolean(total > 0));
    g_dbus_connection_emit_signal(bus, nullptr, kObjectPath, kInterface, kMember,
        g_variant_new("(sa{sv})", kAppURI, &properties), nullptr);
}

} // namespace orvane
