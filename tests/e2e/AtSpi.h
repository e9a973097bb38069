#pragma once

#include "support/BusCall.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace orvane::test {

// What a screen reader finds over AT-SPI in an orvane started with
// GTK_A11Y=atspi: the application's objects (not the pages', which the web
// processes serve), walked from the registry.
class AtSpi {
public:
    // Connects to the accessibility bus of orvane's session bus.
    explicit AtSpi(GDBusConnection* session) {
        GVariantPtr reply
            = callAndWait(session, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr);
        const char* address = nullptr;
        if (reply && (g_variant_get(reply.get(), "(&s)", &address), address))
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address,
                GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                    | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, nullptr));
    }
    explicit operator bool() const { return bool(m_bus); }

    // Once an object of this role shows this line ("name" or "name · description").
    bool shows(const std::string& role, const std::string& line) {
        return waitUntil([&] {
            m_seen.clear();
            walk("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", role, 0);
            return find(line) != m_seen.end();
        }, 30s);
    }
    // Once one of this role shows the line, runs its first action (a button's click).
    bool press(const std::string& role, const std::string& line) {
        return shows(role, line)
            && call(find(line)->bus, find(line)->path, "org.a11y.atspi.Action", "DoAction",
                g_variant_new("(i)", 0));
    }
    std::string seen() const {
        std::vector<std::string> lines;
        std::ranges::transform(m_seen, std::back_inserter(lines), &Seen::line);
        return "seen: " + testing::PrintToString(lines);
    }

private:
    struct Seen {
        std::string line, bus, path;
    };
    static constexpr const char* kAccessible = "org.a11y.atspi.Accessible";
    static constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

    std::vector<Seen>::iterator find(const std::string& line) {
        return std::ranges::find(m_seen, line, &Seen::line);
    }
    GVariantPtr call(const std::string& bus, const std::string& path, const char* interface,
        const char* method, GVariant* parameters = nullptr) {
        return callAndWait(m_bus.get(), bus, path, interface, method, parameters, 5s);
    }
    // The registry's children are the applications, each on a bus of its own.
    void walk(const std::string& bus, const std::string& path, const std::string& role, int depth) {
        GVariantPtr roleName = depth > 0 ? call(bus, path, kAccessible, "GetRoleName") : nullptr;
        const char *name = "", *description = "";
        if (roleName)
            g_variant_get(roleName.get(), "(&s)", &name);
        if (roleName && name == role) {
            GVariantPtr all = call(bus, path, kProperties, "GetAll", g_variant_new("(s)", kAccessible));
            GVariantPtr properties(all ? g_variant_get_child_value(all.get(), 0) : nullptr);
            if (properties && g_variant_lookup(properties.get(), "Name", "&s", &name)) {
                g_variant_lookup(properties.get(), "Description", "&s", &description);
                m_seen.push_back({ name + std::string(*description ? " · " : "") + description, bus, path });
            }
        }
        GVariantPtr children = depth < 40 ? call(bus, path, kAccessible, "GetChildren") : nullptr;
        GVariantIter* list = nullptr;
        const char *child, *childPath;
        if (children)
            g_variant_get(children.get(), "(a(so))", &list);
        while (list && g_variant_iter_next(list, "(&s&o)", &child, &childPath))
            if (depth == 0 || bus == child)
                walk(child, childPath, role, depth + 1);
        if (list)
            g_variant_iter_free(list);
    }

    Ref<GDBusConnection> m_bus;
    std::vector<Seen> m_seen;
};

} // namespace orvane::test
