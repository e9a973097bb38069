#include "support/PrivateDesktop.h"

#include "support/ProcessEnvironment.h"

#include <glib.h>

namespace orvane::test {

PrivateDesktop::~PrivateDesktop() { stop(); }

bool PrivateDesktop::start() {
    ProcessEnvironment environment;
    // -displayfd picks a free display number and prints it once the server
    // accepts connections.
    std::string screen = std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x24";
    if (!m_xserver.start({ "Xvfb", "-displayfd", "1", "-screen", "0", screen, "-nolisten", "tcp" },
            environment.list(), ChildProcess::Output::Pipe))
        return false;
    auto number = m_xserver.readLine(20s);
    if (!number || number->empty())
        return false;
    m_display = ":" + *number;

    if (!m_busDaemon.start({ "dbus-daemon", "--session", "--nofork", "--print-address=1" },
            environment.list(), ChildProcess::Output::Pipe))
        return false;
    auto address = m_busDaemon.readLine(20s);
    if (!address || address->empty())
        return false;
    m_busAddress = *address;

    GErrorPtr error;
    m_bus = adopt(g_dbus_connection_new_for_address_sync(m_busAddress.c_str(),
        GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, GErrorOut(error)));
    if (m_bus)
        g_dbus_connection_set_exit_on_close(m_bus.get(), FALSE);
    return bool(m_bus);
}

void PrivateDesktop::stop() {
    if (m_bus)
        g_dbus_connection_close_sync(m_bus.get(), nullptr, nullptr);
    m_bus.reset();
    m_busDaemon.stop(2s);
    m_xserver.stop(2s);
}

bool PrivateDesktop::nameHasOwner(const std::string& name) const {
    if (!m_bus)
        return false;
    GVariantPtr reply(g_dbus_connection_call_sync(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "NameHasOwner", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr));
    if (!reply)
        return false;
    gboolean owned = FALSE;
    g_variant_get(reply.get(), "(b)", &owned);
    return owned;
}

} // namespace orvane::test
