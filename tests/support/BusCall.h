#pragma once

#include "GRef.h"
#include "support/Wait.h"

#include <gio/gio.h>

#include <memory>
#include <string>

namespace orvane::test {

// A D-Bus method call that keeps the test's main loop running while it waits
// (servers in the test go on answering). The reply, or null on error or
// timeout. `parameters` is sunk when floating.
inline GVariantPtr callAndWait(GDBusConnection* bus, const std::string& destination, const std::string& path,
    const std::string& interface, const std::string& method, GVariant* parameters, std::chrono::milliseconds timeout = 20s) {
    using State = std::pair<bool, GVariantPtr>; // done, reply
    if (!bus) {
        if (parameters)
            g_variant_unref(g_variant_ref_sink(parameters));
        return nullptr;
    }
    auto state = std::make_shared<State>();
    g_dbus_connection_call(bus, destination.c_str(), path.c_str(), interface.c_str(), method.c_str(), parameters, nullptr,
        G_DBUS_CALL_FLAGS_NONE, int(timeout.count()), nullptr, +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State>*>(data));
            (*state)->second.reset(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
            (*state)->first = true;
        }, new std::shared_ptr<State>(state));
    waitUntil([&] { return state->first; }, timeout + 1s);
    return std::move(state->second);
}

} // namespace orvane::test
