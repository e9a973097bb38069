#include "PopupWindows.h"

#include "WebHost.h"
#include "HeapBox.h"

#include <algorithm>

namespace orvane {

PopupWindows::PopupWindows(WebHost& host, const LinkPolicy& policy, Prepare prepare, Forget forget)
    : m_host(host)
    , m_policy(policy)
    , m_prepare(std::move(prepare))
    , m_forget(std::move(forget)) {
}

PopupWindows::~PopupWindows() {
    m_lifetime.end();
    auto popups = std::move(m_popups);
    for (auto& popup : popups) {
        popup.connections.clear();
        gtk_window_destroy(popup.window.get());
    }
}

WebKitWebView* PopupWindows::open(WebKitWebView* opener) {
    if (m_popups.size() >= kMaxPopups) {
        g_info("Refused a pop-up: %zu of this account's are open", m_popups.size());
        return nullptr;
    }
    // A related view: WebKit requires it, and it shares the opener's web
    // process, settings (user agent) and user content manager.
    auto* view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW,
        "related-view", opener,
        "settings", webkit_web_view_get_settings(opener),
        nullptr));
    GdkRGBA background {};
    webkit_web_view_get_background_color(opener, &background);
    webkit_web_view_set_background_color(view, &background);

    GtkWindow* window = m_host.newWindow();
    gtk_window_set_title(window, "Orvane");
    gtk_window_set_default_size(window, kWidth, kHeight);
    gtk_window_set_resizable(window, TRUE);
    gtk_window_set_child(window, GTK_WIDGET(view));
    Popup& popup = m_popups.emplace_back(Popup { Ref<GtkWindow>(window), view, {} });
    popup.connections.push_back(SignalConnection::connect(view, "ready-to-show",
        +[](WebKitWebView* shown, gpointer) {
            if (auto* root = gtk_widget_get_root(GTK_WIDGET(shown)); GTK_IS_WINDOW(root))
                gtk_window_present(GTK_WINDOW(root));
        }, nullptr));
    popup.connections.push_back(SignalConnection::connect(window, "close-request", onCloseRequest, this));
    popup.connections.push_back(SignalConnection::connect(view, "notify::uri",
        +[](WebKitWebView* shown, GParamSpec*, gpointer self) {
            const char* uri = webkit_web_view_get_uri(shown);
            if (auto* root = gtk_widget_get_root(GTK_WIDGET(shown)); GTK_IS_WINDOW(root))
                gtk_window_set_title(GTK_WINDOW(root),
                    static_cast<PopupWindows*>(self)->m_policy.popupTitle(uri ? uri : "").c_str());
        }, this));
    if (m_prepare)
        m_prepare(view, popup.connections);
    return view;
}

bool PopupWindows::contains(WebKitWebView* view) const {
    return std::any_of(m_popups.begin(), m_popups.end(), [&](const Popup& popup) { return popup.view == view; });
}

void PopupWindows::close(WebKitWebView* view) {
    auto it = std::find_if(m_popups.begin(), m_popups.end(), [&](const Popup& popup) { return popup.view == view; });
    if (it != m_popups.end())
        forget(it->window.get(), true);
}

void PopupWindows::closeSoon(WebKitWebView* view) {
    auto it = std::find_if(m_popups.begin(), m_popups.end(), [&](const Popup& popup) { return popup.view == view; });
    if (it == m_popups.end())
        return;
    struct Closing {
        Lifetime::Watch alive;
        PopupWindows* popups;
        Ref<GtkWindow> window;
    };
    g_idle_add_full(G_PRIORITY_DEFAULT, +[](gpointer data) -> gboolean {
        auto* closing = static_cast<Closing*>(data);
        if (closing->alive.alive())
            closing->popups->forget(closing->window.get(), true);
        return G_SOURCE_REMOVE;
    }, HeapBox::make<Closing>(Closing { m_lifetime.watch(), this, it->window }), HeapBox::free<Closing>);
}

gboolean PopupWindows::onCloseRequest(GtkWindow* window, gpointer self) {
    // The user closed the window: it goes away as usual, and off the list.
    static_cast<PopupWindows*>(self)->forget(window, false);
    return FALSE;
}

void PopupWindows::forget(GtkWindow* window, bool destroy) {
    auto it = std::find_if(m_popups.begin(), m_popups.end(),
        [&](const Popup& popup) { return popup.window.get() == window; });
    if (it == m_popups.end())
        return;
    Popup popup = std::move(*it);
    m_popups.erase(it);
    popup.connections.clear();
    if (m_forget)
        m_forget(popup.view);
    if (destroy)
        gtk_window_destroy(popup.window.get());
}

std::vector<GtkWindow*> PopupWindows::windows() const {
    std::vector<GtkWindow*> windows;
    for (const auto& popup : m_popups)
        windows.push_back(popup.window.get());
    return windows;
}

std::vector<WebKitWebView*> PopupWindows::views() const {
    std::vector<WebKitWebView*> views;
    for (const auto& popup : m_popups)
        views.push_back(popup.view);
    return views;
}

} // namespace orvane
