#pragma once

// Real pointer and key input for widget and web tests, sent through the X
// server (XTest, with xdotool) so that gestures and shortcut controllers see
// exactly what a user's hardware would produce. Only on the X11 backend (Xvfb).
// Tests that use it take turns with the display (ctest's RESOURCE_LOCK).

#include "support/Wait.h"

#include <gdk/x11/gdkx.h>
#include <gtk/gtk.h>

// Xlib's macros collide with GoogleTest's names.
#undef None
#undef Bool
#undef Status
#undef True
#undef False
#undef Success

#include <cmath>
#include <string>
#include <vector>

namespace orvane::test {

inline bool runXdotool(std::vector<std::string> args) {
    std::vector<char*> argv { const_cast<char*>("xdotool") };
    for (auto& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    int status = -1;
    bool ok = g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr,
                  nullptr, &status, nullptr)
        && g_spawn_check_wait_status(status, nullptr);
    drainEvents();
    return ok;
}

inline bool canSendXInput(GtkWidget* widget) {
    GtkNative* native = gtk_widget_get_native(widget);
    return native && GDK_IS_X11_SURFACE(gtk_native_get_surface(native)) && g_find_program_in_path("xdotool");
}

// Moves the pointer onto the widget's centre (or the given point), then runs
// the xdotool commands that follow (for instance {"click", "3"}).
inline bool pointerAt(GtkWidget* widget, const std::vector<std::string>& then, double x = -1, double y = -1) {
    GtkNative* native = gtk_widget_get_native(widget);
    graphene_point_t in = GRAPHENE_POINT_INIT(float(x < 0 ? gtk_widget_get_width(widget) / 2.0 : x),
        float(y < 0 ? gtk_widget_get_height(widget) / 2.0 : y));
    graphene_point_t out;
    if (!native || !gtk_widget_compute_point(widget, GTK_WIDGET(native), &in, &out))
        return false;
    double dx = 0, dy = 0;
    gtk_native_get_surface_transform(native, &dx, &dy);
    std::string xid = std::to_string(gdk_x11_surface_get_xid(gtk_native_get_surface(native)));
    auto px = [&](double v, double d, int nudge) { return std::to_string(std::lround(v + d) + nudge); };
    // Arrive with a motion, as a hand would: a pointer that is already there
    // after a popover closed may not count as over the window yet. Another
    // test's window may have been mapped over this one: raise it first.
    std::vector<std::string> args
        = { "windowraise", xid, "mousemove", "--sync", "--window", xid, px(out.x, dx, 2), px(out.y, dy, 2),
              "mousemove", "--sync", "--window", xid, px(out.x, dx, 0), px(out.y, dy, 0) };
    args.insert(args.end(), then.begin(), then.end());
    return runXdotool(args);
}

// Key presses (xdotool key names such as "shift+F10") to the window of
// `widget`, raised and given the X focus first.
inline bool pressKeys(const std::string& keys, GtkWidget* widget) {
    GtkNative* native = gtk_widget_get_native(widget);
    std::string xid = std::to_string(gdk_x11_surface_get_xid(gtk_native_get_surface(native)));
    return runXdotool({ "windowraise", xid, "windowfocus", "--sync", xid, "key", "--clearmodifiers", keys });
}

} // namespace orvane::test
