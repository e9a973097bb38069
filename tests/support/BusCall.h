#pragma once

#include "GRef.h"
#include "support/Wait.h"

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

namespace orvane::test {

// A D-Bus method call that keeps the test's main loop running while it waits
// (servers in the test go on answering). The reply, or null on error or
// timeout. `parameters` is sunk when floating.
inline GVariantPtr callAndWait(GDBusConnection* bus, const std::string& destination, const std::string& path,
    const std::string& interface, const std::string& method, GVariant* parameters,
    std::chrono::milliseconds timeout = 20s) {
    using State = std::pair<bool, GVariantPtr>; // done, reply
    GVariantPtr sunk(parameters ? g_variant_ref_sink(parameters) : nullptr);
    if (!bus)
        return nullptr;
    auto state = std::make_shared<State>();
    g_dbus_connection_call(bus, destination.c_str(), path.c_str(), interface.c_str(), method.c_str(),
        sunk.get(), nullptr, G_DBUS_CALL_FLAGS_NONE, int(timeout.count()), nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State>*>(data));
            (*state)->second.reset(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
            (*state)->first = true;
        },
        new std::shared_ptr<State>(state));
    waitUntil([&] { return state->first; }, timeout + 1s);
    return std::move(state->second);
}

// A desktop service played by the test: the first interface of `xml` at
// `path`, under the bus name `name` (owned once constructed). `answer` gets
// each call (method, parameters, sender) and returns its reply.
class BusService {
public:
    using Answer = std::function<GVariant*(const std::string&, GVariant*, const char*)>;

    BusService(GDBusConnection* bus, const char* name, const char* path, const char* xml, Answer answer)
        : m_bus(bus)
        , m_answer(std::move(answer)) {
        static const GDBusInterfaceVTable vtable = { &BusService::onCall, nullptr, nullptr, {} };
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(xml, nullptr);
        m_registration = g_dbus_connection_register_object(
            bus, path, node->interfaces[0], &vtable, this, nullptr, nullptr);
        g_dbus_node_info_unref(node);
        auto acquired = +[](GDBusConnection*, const char*, gpointer self) {
            static_cast<BusService*>(self)->owned = true;
        };
        m_ownership = g_bus_own_name_on_connection(
            bus, name, G_BUS_NAME_OWNER_FLAGS_NONE, acquired, nullptr, this, nullptr);
        waitUntil([&] { return owned; });
    }
    ~BusService() {
        g_bus_unown_name(m_ownership);
        g_dbus_connection_unregister_object(m_bus, m_registration);
    }
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    bool owned = false;

private:
    static void onCall(GDBusConnection*, const char* sender, const char*, const char*, const char* method,
        GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self) {
        auto* service = static_cast<BusService*>(self);
        g_dbus_method_invocation_return_value(invocation, service->m_answer(method, parameters, sender));
    }

    GDBusConnection* m_bus;
    Answer m_answer;
    guint m_registration = 0, m_ownership = 0;
};

} // namespace orvane::test
