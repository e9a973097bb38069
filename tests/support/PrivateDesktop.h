#pragma once

#include "GRef.h"
#include "support/ChildProcess.h"

#include <gio/gio.h>

#include <string>

namespace orvane::test {

// An X server (Xvfb, 1280 x 800) and a D-Bus session bus of its own, so that
// a program under test owns its well-known bus name and its screen alone,
// however many tests run side by side. Both stop with the object.
class PrivateDesktop {
public:
    PrivateDesktop() = default;
    ~PrivateDesktop();
    PrivateDesktop(const PrivateDesktop&) = delete;
    PrivateDesktop& operator=(const PrivateDesktop&) = delete;

    bool start();
    void stop();

    // ":N", for DISPLAY.
    const std::string& display() const { return m_display; }
    // For DBUS_SESSION_BUS_ADDRESS.
    const std::string& busAddress() const { return m_busAddress; }
    // This test's own connection to the bus.
    GDBusConnection* bus() const { return m_bus.get(); }

    bool nameHasOwner(const std::string& name) const;

    static constexpr int kWidth = 1280;
    static constexpr int kHeight = 800;

private:
    ChildProcess m_xserver;
    ChildProcess m_busDaemon;
    Ref<GDBusConnection> m_bus;
    std::string m_display;
    std::string m_busAddress;
};

} // namespace orvane::test
