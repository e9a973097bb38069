#include "support/FakeGtkNotifications.h"

#include "support/BusCall.h"
#include "support/Wait.h"

namespace orvane::test {

namespace {

constexpr const char* kInterfaceXML = R"XML(
<node>
  <interface name="org.gtk.Notifications">
    <method name="AddNotification">
      <arg type="s" direction="in"/>
      <arg type="s" direction="in"/>
      <arg type="a{sv}" direction="in"/>
    </method>
    <method name="RemoveNotification">
      <arg type="s" direction="in"/>
      <arg type="s" direction="in"/>
    </method>
  </interface>
</node>)XML";

std::string stringOf(GVariant* dictionary, const char* key) {
    const char* value = nullptr;
    return g_variant_lookup(dictionary, key, "&s", &value) ? value : "";
}

// "/app/orvane/Orvane" for "app.orvane.Orvane".
std::string objectPath(const std::string& appID) {
    std::string path = "/" + appID;
    for (char& c : path)
        c = c == '.' ? '/' : c == '-' ? '_' : c;
    return path;
}

} // namespace

FakeGtkNotifications::~FakeGtkNotifications() {
    if (m_ownership)
        g_bus_unown_name(m_ownership);
    if (m_registration && m_bus)
        g_dbus_connection_unregister_object(m_bus.get(), m_registration);
}

bool FakeGtkNotifications::start(GDBusConnection* bus, const std::string&) {
    if (!bus)
        return false;
    m_bus = Ref<GDBusConnection>(bus);
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kInterfaceXML, nullptr);
    static const GDBusInterfaceVTable vtable = { &FakeGtkNotifications::onMethodCall, nullptr, nullptr, {} };
    m_registration = g_dbus_connection_register_object(bus, "/org/gtk/Notifications", node->interfaces[0], &vtable,
        this, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    if (!m_registration)
        return false;
    m_ownership = g_bus_own_name_on_connection(bus, "org.gtk.Notifications", G_BUS_NAME_OWNER_FLAGS_NONE,
        +[](GDBusConnection*, const char*, gpointer self) { static_cast<FakeGtkNotifications*>(self)->m_owned = true; },
        nullptr, this, nullptr);
    return waitUntil([&] { return m_owned; }, 10s);
}

void FakeGtkNotifications::onMethodCall(GDBusConnection*, const char*, const char*, const char*, const char* method,
    GVariant* parameters, GDBusMethodInvocation* invocation, gpointer data) {
    auto* self = static_cast<FakeGtkNotifications*>(data);
    if (g_str_equal(method, "AddNotification")) {
        const char* appID = nullptr;
        const char* id = nullptr;
        GVariant* notification = nullptr;
        g_variant_get(parameters, "(&s&s@a{sv})", &appID, &id, &notification);
        Shown shown;
        shown.id = id;
        shown.title = stringOf(notification, "title");
        shown.body = stringOf(notification, "body");
        shown.action = stringOf(notification, "default-action");
        if (GVariant* target = g_variant_lookup_value(notification, "default-action-target", G_VARIANT_TYPE("(ss)"))) {
            const char* account = nullptr;
            const char* notif = nullptr;
            g_variant_get(target, "(&s&s)", &account, &notif);
            shown.target = std::make_pair(std::string(account), std::string(notif));
            g_variant_unref(target);
        }
        g_variant_unref(notification);
        self->m_appIDs.push_back(appID);
        self->m_added.push_back(std::move(shown));
    } else if (g_str_equal(method, "RemoveNotification")) {
        const char* id = nullptr;
        g_variant_get(parameters, "(&s&s)", nullptr, &id);
        self->m_removed.push_back(id);
    }
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

bool FakeGtkNotifications::click(const Shown& notification) {
    if (!g_str_has_prefix(notification.action.c_str(), "app.") || !notification.target)
        return false;
    return activateAction(m_bus.get(), "app.orvane.Orvane", notification.action.substr(4),
        g_variant_new("(ss)", notification.target->first.c_str(), notification.target->second.c_str()));
}

bool FakeGtkNotifications::activateAction(GDBusConnection* bus, const std::string& appID, const std::string& action,
    GVariant* target) {
    GVariantBuilder parameters;
    g_variant_builder_init(&parameters, G_VARIANT_TYPE("av"));
    if (target)
        g_variant_builder_add(&parameters, "v", target);
    GVariantBuilder platformData;
    g_variant_builder_init(&platformData, G_VARIANT_TYPE("a{sv}"));
    return bool(callAndWait(bus, appID, objectPath(appID), "org.freedesktop.Application", "ActivateAction",
        g_variant_new("(sava{sv})", action.c_str(), &parameters, &platformData), 30s));
}

} // namespace orvane::test
