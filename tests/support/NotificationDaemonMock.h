#pragma once

#include "GRef.h"
#include "support/ChildProcess.h"
#include "support/NotificationServer.h"

namespace orvane::test {

// org.freedesktop.Notifications played by python3-dbusmock's
// notification_daemon template, in a process of its own. What it received is
// read through its org.freedesktop.DBus.Mock interface (GetMethodCalls); a
// click is its ActionInvoked(number, "default") signal.
class NotificationDaemonMock final : public NotificationServer {
public:
    // `capabilities` replaces the template's list (space-separated) when not
    // empty; the template's own list includes "body-markup".
    explicit NotificationDaemonMock(std::string capabilities = {});
    ~NotificationDaemonMock() override;

    // A python3 that has dbusmock, or nothing.
    static std::optional<std::string> python();

    bool start(GDBusConnection* bus, const std::string& busAddress) override;
    std::vector<Shown> shown() override;
    bool click(const Shown& notification) override;
    bool readsMarkup() const override;
    const char* name() const override { return "org.freedesktop.Notifications"; }

private:
    std::string m_capabilities;
    Ref<GDBusConnection> m_bus;
    ChildProcess m_process;
};

} // namespace orvane::test
