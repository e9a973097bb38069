#pragma once

#include "GRef.h"
#include "support/NotificationServer.h"

namespace orvane::test {

// org.gtk.Notifications (the interface GNOME Shell offers), owned by the
// test: records AddNotification(app_id, id, a{sv}) and RemoveNotification. A
// click is what the shell does: org.freedesktop.Application.ActivateAction
// on the application, which D-Bus starts when it is not running.
class FakeGtkNotifications final : public NotificationServer {
public:
    FakeGtkNotifications() = default;
    ~FakeGtkNotifications() override;

    bool start(GDBusConnection* bus, const std::string& busAddress) override;
    std::vector<Shown> shown() override { return m_added; }
    bool click(const Shown& notification) override;
    bool readsMarkup() const override { return false; }
    const char* name() const override { return "org.gtk.Notifications"; }

    // The application ids of the AddNotification calls, in order.
    const std::vector<std::string>& appIDs() const { return m_appIDs; }
    const std::vector<std::string>& removed() const { return m_removed; }

    // ActivateAction for an application's action on this bus.
    static bool activateAction(GDBusConnection* bus, const std::string& appID, const std::string& action,
        GVariant* target);

private:
    static void onMethodCall(GDBusConnection*, const char* sender, const char* path, const char* interface,
        const char* method, GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self);

    Ref<GDBusConnection> m_bus;
    guint m_registration = 0;
    guint m_ownership = 0;
    bool m_owned = false;
    std::vector<Shown> m_added;
    std::vector<std::string> m_appIDs;
    std::vector<std::string> m_removed;
};

} // namespace orvane::test
