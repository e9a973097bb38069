#pragma once

#include "AccountStore.h"
#include "SignalConnection.h"

#include <adwaita.h>

#include <functional>
#include <memory>

namespace orvane {

class ContentView;
class RemovalToast;
class WebViewManager;

// The one main window: an AdwApplicationWindow titled "Orvane" with a header
// bar (primary menu) above the ContentView. GTK owns the window; this object
// lives until the window is destroyed (the application drops it then) and
// destroys a window still open when it goes first.
class MainWindow {
public:
    MainWindow(GtkApplication* application, AccountStore& store, WebViewManager& manager, GMenuModel* primaryMenu);
    ~MainWindow();
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    GtkWindow* window() const { return m_window; }
    ContentView& content() const { return *m_content; }
    AdwHeaderBar* headerBar() const { return m_headerBar; }

    // Shows a toast over the window's content (takes the floating reference).
    void showToast(AdwToast* toast);
    // The toast that offers to undo removing accounts; removals still
    // pending when the window goes are committed then.
    RemovalToast& removals() const { return *m_removals; }

    // Called each time the window becomes the active one.
    void setOnBecameActive(std::function<void()> callback) { m_onBecameActive = std::move(callback); }

    static constexpr int kMinimumWidth = 820;
    static constexpr int kMinimumHeight = 520;

private:
    static void activeChanged(GObject*, GParamSpec*, gpointer self);

    // Borrowed references: GTK's list of toplevels owns the window; cleared
    // when the window is finalized.
    GtkWindow* m_window = nullptr;
    AdwToastOverlay* m_toasts = nullptr; // a child of the window
    AdwHeaderBar* m_headerBar = nullptr; // a child of the window

    // Owned references
    std::unique_ptr<ContentView> m_content;
    std::unique_ptr<RemovalToast> m_removals;
    std::function<void()> m_onBecameActive;
    SignalConnection m_activeChanged;
};

} // namespace orvane
