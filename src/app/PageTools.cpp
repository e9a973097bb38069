#include "PageTools.h"

#include "AppResources.h"
#include "ContentView.h"
#include "MainWindow.h"
#include "WebViewManager.h"

#include <glib/gi18n-lib.h>

#include <string>

namespace orvane {

namespace {

constexpr const char* kGroup = "page";
constexpr unsigned kMaxMatches = 1000;
constexpr auto kFindOptions = WebKitFindOptions(WEBKIT_FIND_OPTIONS_CASE_INSENSITIVE | WEBKIT_FIND_OPTIONS_WRAP_AROUND);

PageTools* toolsFrom(gpointer data) { return static_cast<PageTools*>(data); }

struct Shortcut {
    const char* action;
    std::initializer_list<const char*> accels;
};

const Shortcut kShortcuts[] = {
    { "page.find", { "<Control>f" } },
    { "page.reload", { "<Control>r", "F5" } },
    { "page.reload-bypass-cache", { "<Control><Shift>r", "<Shift>F5" } },
    { "page.back", { "<Alt>Left" } },
    { "page.forward", { "<Alt>Right" } },
    { "page.zoom-in", { "<Control>plus", "<Control>equal", "<Control>KP_Add" } },
    { "page.zoom-out", { "<Control>minus", "<Control>KP_Subtract" } },
    { "page.zoom-reset", { "<Control>0", "<Control>KP_0" } },
};

} // namespace

void PageTools::addShortcuts(GtkApplication* application) {
    for (const auto& shortcut : kShortcuts) {
        std::vector<const char*> accels(shortcut.accels);
        accels.push_back(nullptr);
        gtk_application_set_accels_for_action(application, shortcut.action, accels.data());
    }
}

PageTools::PageTools(MainWindow& window, AccountStore& store, WebViewManager& manager, SessionPreferences& preferences)
    : m_window(window)
    , m_store(store)
    , m_manager(manager)
    , m_preferences(preferences) {
    ensureUIResources();
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/FindBar.ui"));
    auto widget = [&](const char* id) { return GTK_WIDGET(gtk_builder_get_object(builder.get(), id)); };
    m_searchBar = widget("search_bar");
    m_entry = widget("entry");
    m_matches = widget("matches");
    gtk_search_bar_connect_entry(GTK_SEARCH_BAR(m_searchBar), GTK_EDITABLE(m_entry));
    // Above the pages, below the header bar: the content's own box.
    GtkWidget* content = window.content().widget();
    gtk_box_insert_child_after(GTK_BOX(gtk_widget_get_parent(content)), m_searchBar, gtk_widget_get_prev_sibling(content));

    m_connections.push_back(SignalConnection::connect(m_entry, "search-changed", +[](GtkSearchEntry*, gpointer self) { toolsFrom(self)->search(); }, this));
    m_connections.push_back(SignalConnection::connect(m_entry, "activate", +[](GtkSearchEntry*, gpointer self) { toolsFrom(self)->searchAgain(false); }, this));
    m_connections.push_back(SignalConnection::connect(m_entry, "next-match", +[](GtkSearchEntry*, gpointer self) { toolsFrom(self)->searchAgain(false); }, this));
    m_connections.push_back(SignalConnection::connect(m_entry, "previous-match", +[](GtkSearchEntry*, gpointer self) { toolsFrom(self)->searchAgain(true); }, this));
    m_connections.push_back(SignalConnection::connect(widget("next_button"), "clicked", +[](GtkButton*, gpointer self) { toolsFrom(self)->searchAgain(false); }, this));
    m_connections.push_back(SignalConnection::connect(widget("previous_button"), "clicked", +[](GtkButton*, gpointer self) { toolsFrom(self)->searchAgain(true); }, this));
    m_connections.push_back(SignalConnection::connect(m_searchBar, "notify::search-mode-enabled", +[](GtkSearchBar* bar, GParamSpec*, gpointer self) {
        if (!gtk_search_bar_get_search_mode(bar))
            toolsFrom(self)->searchClosed();
    }, this));
    // Another account's page: the search moves there.
    m_storeSubscription = m_store.observe([this](unsigned change) {
        if ((change & StoreChangeSelection) && gtk_search_bar_get_search_mode(GTK_SEARCH_BAR(m_searchBar)))
            search();
    });
    addActions();
}

PageTools::~PageTools() {
    m_storeSubscription.reset();
    forgetSearchedPage();
    m_connections.clear();
    if (GtkWindow* window = m_window.window())
        gtk_widget_insert_action_group(GTK_WIDGET(window), kGroup, nullptr);
}

WebKitWebView* PageTools::page() const {
    GtkWidget* view = m_window.content().visibleWebView();
    return view ? WEBKIT_WEB_VIEW(view) : nullptr;
}

void PageTools::addActions() {
    static const GActionEntry entries[] = {
        { "find", +[](GSimpleAction*, GVariant*, gpointer self) { toolsFrom(self)->openSearch(); }, nullptr, nullptr, nullptr, {} },
        { "reload", +[](GSimpleAction*, GVariant*, gpointer self) {
            if (WebKitWebView* page = toolsFrom(self)->page())
                webkit_web_view_reload(page);
        }, nullptr, nullptr, nullptr, {} },
        { "reload-bypass-cache", +[](GSimpleAction*, GVariant*, gpointer self) {
            if (WebKitWebView* page = toolsFrom(self)->page())
                webkit_web_view_reload_bypass_cache(page);
        }, nullptr, nullptr, nullptr, {} },
        { "back", +[](GSimpleAction*, GVariant*, gpointer self) {
            if (WebKitWebView* page = toolsFrom(self)->page())
                webkit_web_view_go_back(page);
        }, nullptr, nullptr, nullptr, {} },
        { "forward", +[](GSimpleAction*, GVariant*, gpointer self) {
            if (WebKitWebView* page = toolsFrom(self)->page())
                webkit_web_view_go_forward(page);
        }, nullptr, nullptr, nullptr, {} },
        { "zoom-in", +[](GSimpleAction*, GVariant*, gpointer self) { toolsFrom(self)->zoom(1); }, nullptr, nullptr, nullptr, {} },
        { "zoom-out", +[](GSimpleAction*, GVariant*, gpointer self) { toolsFrom(self)->zoom(-1); }, nullptr, nullptr, nullptr, {} },
        { "zoom-reset", +[](GSimpleAction*, GVariant*, gpointer self) { toolsFrom(self)->zoom(0); }, nullptr, nullptr, nullptr, {} },
    };
    auto group = adopt(g_simple_action_group_new());
    g_action_map_add_action_entries(G_ACTION_MAP(group.get()), entries, G_N_ELEMENTS(entries), this);
    gtk_widget_insert_action_group(GTK_WIDGET(m_window.window()), kGroup, G_ACTION_GROUP(group.get()));
}

// Opening the bar puts the keyboard in its (empty) entry; Ctrl+F with the
// bar open selects what is in it, to type a new search over it.
void PageTools::openSearch() {
    GtkSearchBar* bar = GTK_SEARCH_BAR(m_searchBar);
    if (!page())
        return;
    if (!gtk_search_bar_get_search_mode(bar)) {
        gtk_search_bar_set_search_mode(bar, TRUE);
        return;
    }
    gtk_widget_grab_focus(m_entry);
    gtk_editable_select_region(GTK_EDITABLE(m_entry), 0, -1);
}

void PageTools::forgetSearchedPage() {
    m_pageConnections.clear();
    if (!m_searchedPage)
        return;
    webkit_find_controller_search_finish(webkit_web_view_get_find_controller(m_searchedPage));
    g_object_remove_weak_pointer(G_OBJECT(m_searchedPage), reinterpret_cast<gpointer*>(&m_searchedPage));
    m_searchedPage = nullptr;
}

void PageTools::watchPage(WebKitWebView* view) {
    m_searchedPage = view;
    g_object_add_weak_pointer(G_OBJECT(view), reinterpret_cast<gpointer*>(&m_searchedPage));
    WebKitFindController* finder = webkit_web_view_get_find_controller(view);
    m_pageConnections.push_back(SignalConnection::connect(finder, "counted-matches", +[](WebKitFindController*, guint count, gpointer self) {
        toolsFrom(self)->showMatches(count);
    }, this));
    m_pageConnections.push_back(SignalConnection::connect(finder, "failed-to-find-text", +[](WebKitFindController*, gpointer self) {
        toolsFrom(self)->showMatches(0);
    }, this));
}

// Runs on every change of the text and of the selected page: the matches of
// the page shown are highlighted (the first one selected) and counted.
void PageTools::search() {
    // The bar empties its entry as it closes.
    if (!gtk_search_bar_get_search_mode(GTK_SEARCH_BAR(m_searchBar)))
        return;
    WebKitWebView* view = page();
    std::string text = gtk_editable_get_text(GTK_EDITABLE(m_entry));
    if (view != m_searchedPage) {
        forgetSearchedPage();
        if (view)
            watchPage(view);
    }
    if (!view || text.empty()) {
        if (view)
            webkit_find_controller_search_finish(webkit_web_view_get_find_controller(view));
        gtk_label_set_text(GTK_LABEL(m_matches), "");
        gtk_widget_remove_css_class(m_entry, "error");
        return;
    }
    WebKitFindController* finder = webkit_web_view_get_find_controller(view);
    webkit_find_controller_count_matches(finder, text.c_str(), kFindOptions, kMaxMatches);
    webkit_find_controller_search(finder, text.c_str(), kFindOptions, kMaxMatches);
}

void PageTools::searchAgain(bool backwards) {
    if (!m_searchedPage || gtk_editable_get_text(GTK_EDITABLE(m_entry))[0] == '\0')
        return;
    WebKitFindController* finder = webkit_web_view_get_find_controller(m_searchedPage);
    if (backwards)
        webkit_find_controller_search_previous(finder);
    else
        webkit_find_controller_search_next(finder);
}

void PageTools::showMatches(unsigned count) {
    std::string text;
    GCharPtr counted;
    if (count == 0)
        counted.reset(g_strdup(_("No matches")));
    else if (count >= kMaxMatches)
        counted.reset(g_strdup_printf(_("Over %u matches"), kMaxMatches - 1));
    else
        counted.reset(g_strdup_printf(g_dngettext(GETTEXT_PACKAGE, "%u match", "%u matches", count), count));
    text = counted.get();
    gtk_label_set_text(GTK_LABEL(m_matches), text.c_str());
    if (count == 0)
        gtk_widget_add_css_class(m_entry, "error");
    else
        gtk_widget_remove_css_class(m_entry, "error");
}

// The highlights go and the keyboard goes back to the page.
void PageTools::searchClosed() {
    forgetSearchedPage();
    gtk_label_set_text(GTK_LABEL(m_matches), "");
    if (WebKitWebView* view = page())
        gtk_widget_grab_focus(GTK_WIDGET(view));
}

// One step up or down the zoom steps, or back to 100 %, kept for the account.
void PageTools::zoom(int direction) {
    WebKitWebView* view = page();
    auto accountID = view ? m_manager.accountID(view) : std::nullopt;
    if (!accountID)
        return;
    double level = webkit_web_view_get_zoom_level(view);
    level = direction > 0 ? SessionPreferences::zoomIn(level) : direction < 0 ? SessionPreferences::zoomOut(level) : 1.0;
    webkit_web_view_set_zoom_level(view, level);
    m_preferences.setZoom(*accountID, level);
}

} // namespace orvane
