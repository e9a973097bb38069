#include "support/BusCall.h"

#include "support/Wait.h"

#include <memory>

namespace orvane::test {

GVariantPtr callAndWait(GDBusConnection* bus, const std::string& destination, const std::string& path,
    const std::string& interface, const std::string& method, GVariant* parameters, std::chrono::milliseconds timeout) {
    struct State {
        bool done = false;
        GVariantPtr reply;
    };
    if (!bus) {
        if (parameters)
            g_variant_unref(g_variant_ref_sink(parameters));
        return nullptr;
    }
    auto state = std::make_shared<State>();
    g_dbus_connection_call(bus, destination.c_str(), path.c_str(), interface.c_str(), method.c_str(), parameters,
        nullptr, G_DBUS_CALL_FLAGS_NONE, int(timeout.count()), nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State>*>(data));
            (*state)->reply.reset(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
            (*state)->done = true;
        },
        new std::shared_ptr<State>(state));
    waitUntil([&] { return state->done; }, timeout + 1s);
    return std::move(state->reply);
}

} // namespace orvane::test
