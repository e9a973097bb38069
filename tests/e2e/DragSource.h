#pragma once

#include "support/OrvaneProcess.h"
#include "support/Wait.h"

#include <gtk/gtk.h>

#include <string>
#include <vector>

namespace orvane::test {

// A small window of the test process, on orvane's private X server, whose
// whole area is a drag source for some content (files, text, a link). The
// mouse is driven with xdotool, so orvane sees a real XDND drag from another
// program. The window sits right of orvane's main window (which starts at the
// top left), where the two do not overlap.
class DragSource {
public:
    static constexpr int kX = 1150;
    static constexpr int kY = 120;
    static constexpr int kSize = 100;

    explicit DragSource(const OrvaneProcess& orvane) : m_orvane(orvane) {}
    ~DragSource() {
        if (m_window)
            gtk_window_destroy(m_window);
        if (m_display)
            gdk_display_close(m_display);
    }
    DragSource(const DragSource&) = delete;
    DragSource& operator=(const DragSource&) = delete;

    // Shows the window; the content (taken over) is what a drag offers.
    bool open(GdkContentProvider* content) {
        m_display = gdk_display_open(m_orvane.desktop().display().c_str());
        if (!m_display)
            return false;
        m_window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_display(m_window, m_display);
        gtk_window_set_title(m_window, "Drag Source");
        gtk_window_set_decorated(m_window, FALSE);
        gtk_window_set_default_size(m_window, kSize, kSize);
        GtkWidget* label = gtk_label_new("drag");
        gtk_widget_set_size_request(label, kSize, kSize);
        m_source = gtk_drag_source_new();
        gtk_drag_source_set_actions(m_source, GDK_ACTION_COPY);
        gtk_widget_add_controller(label, GTK_EVENT_CONTROLLER(m_source));
        gtk_window_set_child(m_window, label);
        setContent(content);
        gtk_window_present(m_window);
        if (!waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(m_window)); }, 10s))
            return false;
        auto windows = m_orvane.windowsTitled("Drag Source");
        if (windows.size() != 1)
            return false;
        m_xid = windows.front();
        return tool({ "xdotool", "windowmove", std::to_string(m_xid), std::to_string(kX), std::to_string(kY) });
    }

    // Replaces what the next drag offers (taken over).
    void setContent(GdkContentProvider* content) {
        gtk_drag_source_set_content(m_source, content);
        g_object_unref(content);
    }

    // Presses the left button on the window, moves to (x, y) in small steps
    // and releases it there, the way a hand would.
    bool dragTo(int x, int y) {
        // Orvane raises its own window when files arrive.
        if (!tool({ "xdotool", "windowraise", std::to_string(m_xid) }))
            return false;
        int fromX = kX + kSize / 2;
        int fromY = kY + kSize / 2;
        std::vector<std::string> argv = { "xdotool", "mousemove", std::to_string(fromX), std::to_string(fromY),
            "sleep", "0.1", "mousedown", "1", "sleep", "0.1" };
        constexpr int kSteps = 24;
        for (int step = 1; step <= kSteps; ++step) {
            argv.insert(argv.end(), { "mousemove", std::to_string(fromX + (x - fromX) * step / kSteps),
                                        std::to_string(fromY + (y - fromY) * step / kSteps), "sleep", "0.03" });
        }
        // A few moves at the drop point, so the target has answered before the release.
        for (int wiggle : { 1, -1, 0 })
            argv.insert(argv.end(), { "mousemove", std::to_string(x + wiggle), std::to_string(y), "sleep", "0.1" });
        argv.insert(argv.end(), { "mouseup", "1" });
        return tool(argv);
    }

    // A drag offering local files.
    static GdkContentProvider* files(const std::vector<std::string>& paths) {
        GSList* list = nullptr;
        for (const auto& path : paths)
            list = g_slist_append(list, g_file_new_for_path(path.c_str()));
        GdkFileList* fileList = gdk_file_list_new_from_list(list);
        g_slist_free_full(list, g_object_unref);
        GdkContentProvider* provider = gdk_content_provider_new_typed(GDK_TYPE_FILE_LIST, fileList);
        g_boxed_free(GDK_TYPE_FILE_LIST, fileList);
        return provider;
    }

    // A drag of text, or of a web link as browsers offer one.
    static GdkContentProvider* text(const std::string& text) {
        return gdk_content_provider_new_typed(G_TYPE_STRING, text.c_str());
    }
    static GdkContentProvider* link(const std::string& uri) {
        std::string list = uri + "\r\n";
        GdkContentProvider* providers[] = {
            gdk_content_provider_new_for_bytes("text/uri-list", g_bytes_new(list.data(), list.size())),
            gdk_content_provider_new_for_bytes("text/plain;charset=utf-8", g_bytes_new(uri.data(), uri.size())),
        };
        return gdk_content_provider_new_union(providers, G_N_ELEMENTS(providers));
    }

private:
    bool tool(const std::vector<std::string>& argv) {
        auto result = ChildProcess::run(argv, m_orvane.environment(), 30s);
        return result && result->status == 0;
    }

    const OrvaneProcess& m_orvane;
    GdkDisplay* m_display = nullptr;   // owned
    GtkWindow* m_window = nullptr;     // owned
    GtkDragSource* m_source = nullptr; // owned by the window
    unsigned long m_xid = 0;
};

} // namespace orvane::test
