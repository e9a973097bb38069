#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvane::test {

// A desktop notification server on a test's session bus, recording what a
// program under test shows. GLib sends GNotifications to org.gtk.Notifications
// when that name is owned, else to org.freedesktop.Notifications; each has an
// implementation here (FakeGtkNotifications, NotificationDaemonMock).
class NotificationServer {
public:
    // One notification as the server received it.
    struct Shown {
        std::string id;        // the sender's id (org.gtk.Notifications only)
        uint32_t number = 0;   // the server's number (org.freedesktop.Notifications only)
        uint32_t replaces = 0; // the number it replaces, 0 for none (freedesktop only)
        std::string title;
        std::string body;      // as sent
        // The default action and its (account, notif) target, where the
        // server is told them (org.gtk.Notifications only).
        std::string action;
        std::optional<std::pair<std::string, std::string>> target;
    };

    virtual ~NotificationServer() = default;

    // Takes its name on the bus; true once it owns it.
    virtual bool start(GDBusConnection* bus, const std::string& busAddress) = 0;
    // Every notification received so far, oldest first.
    virtual std::vector<Shown> shown() = 0;
    // Does what the server does when the user clicks the notification.
    virtual bool click(const Shown& notification) = 0;
    // Whether bodies reach this server as markup.
    virtual bool readsMarkup() const = 0;
    virtual const char* name() const = 0;
};

} // namespace orvane::test
