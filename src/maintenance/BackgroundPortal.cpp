#include "BackgroundPortal.h"

#include <algorithm>

namespace orvane {

BackgroundPortal::BackgroundPortal(GDBusConnection* bus) {
    if (bus)
        m_bus = Ref<GDBusConnection>(bus);
    else
        m_bus = adopt(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
}

BackgroundPortal::~BackgroundPortal() {
    if (m_cancellable)
        g_cancellable_cancel(m_cancellable.get());
    unsubscribe();
}

void BackgroundPortal::unsubscribe() {
    if (m_subscription && m_bus)
        g_dbus_connection_signal_unsubscribe(m_bus.get(), m_subscription);
    m_subscription = 0;
}

void BackgroundPortal::finish(std::optional<Answer> answer) {
    unsubscribe();
    m_cancellable.reset();
    if (auto completion = std::exchange(m_completion, nullptr))
        completion(answer);
}

// The portal answers on a request object whose path it derives from the
// caller's unique name and the handle token, so the subscription to the
// answer is in place before the call goes out and no answer is missed.
void BackgroundPortal::request(const std::string& reason, bool autostart, const std::vector<std::string>& commandLine, Completion completion) {
    if (m_cancellable)
        g_cancellable_cancel(m_cancellable.get());
    unsubscribe();
    m_completion = std::move(completion);
    const char* unique = m_bus ? g_dbus_connection_get_unique_name(m_bus.get()) : nullptr;
    if (!unique)
        return finish(std::nullopt);

    std::string token = "orvane" + std::to_string(++m_requests);
    std::string sender = unique + 1;
    std::replace(sender.begin(), sender.end(), '.', '_');
    std::string path = std::string(kObjectPath) + "/request/" + sender + "/" + token;
    m_subscription = g_dbus_connection_signal_subscribe(m_bus.get(), nullptr, "org.freedesktop.portal.Request", "Response",
        path.c_str(), nullptr, G_DBUS_SIGNAL_FLAGS_NONE, +[](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters, gpointer data) {
            if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})")))
                return;
            guint32 response = 2;
            GVariant* results = nullptr;
            g_variant_get(parameters, "(u@a{sv})", &response, &results);
            Answer answer;
            if (response == 0) {
                gboolean value = FALSE;
                if (g_variant_lookup(results, "background", "b", &value))
                    answer.background = value;
                if (g_variant_lookup(results, "autostart", "b", &value))
                    answer.autostart = value;
            }
            g_variant_unref(results);
            static_cast<BackgroundPortal*>(data)->finish(answer);
        }, this, nullptr);
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
    g_variant_builder_add(&options, "{sv}", "reason", g_variant_new_string(reason.c_str()));
    g_variant_builder_add(&options, "{sv}", "autostart", g_variant_new_boolean(autostart));
    if (!commandLine.empty()) {
        GVariantBuilder argv;
        g_variant_builder_init(&argv, G_VARIANT_TYPE_STRING_ARRAY);
        for (const auto& argument : commandLine)
            g_variant_builder_add(&argv, "s", argument.c_str());
        g_variant_builder_add(&options, "{sv}", "commandline", g_variant_builder_end(&argv));
    }
    m_cancellable = adopt(g_cancellable_new());
    g_dbus_connection_call(m_bus.get(), kBusName, kObjectPath, kInterface, "RequestBackground",
        g_variant_new("(sa{sv})", "", &options), G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, -1, m_cancellable.get(),
        +[](GObject* bus, GAsyncResult* result, gpointer data) {
            GErrorPtr error;
            GVariantPtr reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, GErrorOut(error)));
            if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED))
                return;
            // No portal, or one without this interface: nobody will answer.
            if (!reply)
                static_cast<BackgroundPortal*>(data)->finish(std::nullopt);
        }, this);
}

} // namespace orvane
