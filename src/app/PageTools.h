#pragma once

#include "AccountStore.h"
#include "GRef.h"
#include "SessionPreferences.h"
#include "SignalConnection.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <string>
#include <vector>

namespace orvane {

class MainWindow;
class WebViewManager;

// The tools a browser user reaches for, on the page of the selected account
// in the main window, as the window's "page" actions:
//   page.find (Ctrl+F), page.reload (Ctrl+R, F5), page.reload-bypass-cache
//   (Ctrl+Shift+R), page.back (Alt+Left), page.forward (Alt+Right),
//   page.zoom-in (Ctrl+plus), page.zoom-out (Ctrl+minus), page.zoom-reset
//   (Ctrl+0).
// Finding happens in a search bar above the pages: the page's matches are
// highlighted and counted as one types, Return and the arrows go to the next
// and the previous one, Escape closes the bar and gives the keyboard back to
// the page. Zoom is per account and kept (SessionPreferences).
class PageTools {
public:
    // Lives no longer than the window, the store, the manager and the
    // preferences.
    PageTools(MainWindow& window, AccountStore& store, WebViewManager& manager, SessionPreferences& preferences);
    ~PageTools();
    PageTools(const PageTools&) = delete;
    PageTools& operator=(const PageTools&) = delete;

    // The shortcuts of the page actions, once for the application.
    static void addShortcuts(GtkApplication* application);

    // For tests: the search bar and its parts.
    GtkWidget* searchBar() const { return m_searchBar; }
    GtkWidget* searchEntry() const { return m_entry; }
    GtkWidget* matchLabel() const { return m_matches; }

private:
    WebKitWebView* page() const;
    void addActions();
    void openSearch();
    void search();
    void searchAgain(bool backwards);
    void searchClosed();
    void showMatches(unsigned count);
    void forgetSearchedPage();
    void watchPage(WebKitWebView* view);
    void zoom(int direction);

    // Borrowed references
    MainWindow& m_window;
    AccountStore& m_store;
    WebViewManager& m_manager;
    SessionPreferences& m_preferences;

    // Owned references
    // The page whose matches show; weak, as its account may go meanwhile.
    WebKitWebView* m_searchedPage = nullptr;
    std::vector<SignalConnection> m_connections;
    std::vector<SignalConnection> m_pageConnections;
    AccountStore::ChangeObservers::Subscription m_storeSubscription;

    // Template widgets (inside the window)
    GtkWidget* m_searchBar = nullptr;
    GtkWidget* m_entry = nullptr;
    GtkWidget* m_matches = nullptr;
};

} // namespace orvane
