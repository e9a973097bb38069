#pragma once

#include "DownloadList.h"
#include "GRef.h"
#include "SignalConnection.h"

#include <gtk/gtk.h>

#include <string>
#include <vector>

namespace orvane {

// The header bar's downloads button. It shows while a download runs (a ring
// fills with their progress) and for kLinger after the last one ended (a
// downloads icon), and goes, with the ended downloads, once that time is
// over or its popover closes with none running. Its popover lists each
// download with its name, a progress bar while it runs, its outcome, and
// "Show in Files" once complete. It also gives the window the actions that
// the download toasts use: downloads.open and downloads.show-in-files, each
// with a file's path (they keep working after the button goes).
class DownloadsButton {
public:
    static constexpr unsigned kLingerSeconds = 20;

    DownloadsButton(DownloadList& list, GtkWindow* window);
    ~DownloadsButton();
    DownloadsButton(const DownloadsButton&) = delete;
    DownloadsButton& operator=(const DownloadsButton&) = delete;

    GtkWidget* widget() const { return m_button; }

private:
    void update();
    void rebuildRows();
    void lingerOver();
    static void drawRing(GtkDrawingArea*, cairo_t*, int width, int height, gpointer self);

    // Borrowed references
    DownloadList& m_list;

    // Template widgets (the button's children)
    GtkWidget* m_button = nullptr; // a GtkMenuButton, held by m_buttonRef
    GtkWidget* m_icon = nullptr;
    GtkWidget* m_ring = nullptr;
    GtkWidget* m_popover = nullptr;
    GtkWidget* m_rows = nullptr;
    struct Row {
        uint64_t id;
        DownloadList::State state;
        std::string name;
        GtkWidget* bar; // while running, else null
    };
    std::vector<Row> m_shown; // what m_rows shows, in order

    // Owned references
    Ref<GtkWidget> m_buttonRef;
    Ref<GSimpleActionGroup> m_actions;
    Observers<>::Subscription m_changed;
    SignalConnection m_popoverClosed;
    guint m_linger = 0;
};

} // namespace orvane
