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
        GVariantPtr reply = callAndWait(session, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr);
        const char* address = nullptr;
        if (reply && (g_variant_get(reply.get(), "(&s)", &address), address))
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address, GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION), nullptr, nullptr, nullptr));
    }
    explicit operator bool() const { return bool(m_bus); }

    // Once the objects of this role include all these lines: "name · description",
    // then "· selected" or "· selectable" for those that can be.
    bool shows(const std::string& role, const std::vector<std::string>& wanted) {
        return waitUntil([&] {
            m_seen.clear();
            walk("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", role, 0);
            return std::all_of(wanted.begin(), wanted.end(), [&](auto& line) { return std::ranges::find(m_seen, line, &Seen::line) != m_seen.end(); });
        }, 30s);
    }
    // Once one of this role shows the line, runs its first action (a button's click).
    bool press(const std::string& role, const std::string& line) {
        if (!shows(role, { line }))
            return false;
        auto found = std::ranges::find(m_seen, line, &Seen::line);
        return bool(callAndWait(m_bus.get(), found->bus, found->path, "org.a11y.atspi.Action", "DoAction", g_variant_new("(i)", 0), 5s));
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
    GVariantPtr call(const std::string& bus, const std::string& path, const char* method, const char* property = nullptr) {
        return callAndWait(m_bus.get(), bus, path, property ? "org.freedesktop.DBus.Properties" : "org.a11y.atspi.Accessible", method,
            property ? g_variant_new("(ss)", "org.a11y.atspi.Accessible", property) : nullptr, 5s);
    }
    std::string text(const std::string& bus, const std::string& path, const char* method, const char* property = nullptr) {
        GVariantPtr reply = call(bus, path, method, property);
        GVariantPtr value(reply ? g_variant_get_child_value(reply.get(), 0) : nullptr);
        GVariantPtr string(value && property ? g_variant_get_variant(value.get()) : value.release());
        return string && g_variant_is_of_type(string.get(), G_VARIANT_TYPE_STRING) ? g_variant_get_string(string.get(), nullptr) : "";
    }
    // The registry's children are the applications, each on a bus of its own.
    void walk(const std::string& bus, const std::string& path, const std::string& role, int depth) {
        if (depth > 0 && text(bus, path, "GetRoleName") == role) {
            std::string line = text(bus, path, "Get", "Name");
            if (std::string description = text(bus, path, "Get", "Description"); !description.empty())
                line += " · " + description;
            GVariantPtr states = call(bus, path, "GetState");
            GVariantPtr words(states ? g_variant_get_child_value(states.get(), 0) : nullptr);
            guint32 word = 0; // AtspiStateType 22 is selectable, 23 selected
            if (words && g_variant_n_children(words.get()))
                g_variant_get_child(words.get(), 0, "u", &word);
            m_seen.push_back({ line + (word >> 23 & 1 ? " · selected" : word >> 22 & 1 ? " · selectable" : ""), bus, path });
        }
        GVariantPtr children = depth < 40 ? call(bus, path, "GetChildren") : nullptr;
        if (!children)
            return;
        GVariantPtr list(g_variant_get_child_value(children.get(), 0));
        GVariantIter iter;
        const char *child, *childPath;
        for (g_variant_iter_init(&iter, list.get()); g_variant_iter_next(&iter, "(&s&o)", &child, &childPath);)
            if (depth == 0 || bus == child)
                walk(child, childPath, role, depth + 1);
    }

    Ref<GDBusConnection> m_bus;
    std::vector<Seen> m_seen;
};

} // namespace orvane::test
