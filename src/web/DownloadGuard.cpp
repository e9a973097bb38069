#include "DownloadGuard.h"

#include "DownloadDestination.h"
#include "WebHost.h"

#include <gtk/gtk.h>

#include <algorithm>

namespace orvane {

DownloadGuard::~DownloadGuard() {
    m_lifetime.end();
    for (auto& download : m_held)
        webkit_download_cancel(download.get());
}

SignalConnection DownloadGuard::watch(WebKitWebView* view) {
    // Seen before the page gets them; the controller belongs to the view.
    GtkEventController* controller = gtk_event_controller_legacy_new();
    gtk_event_controller_set_propagation_phase(controller, GTK_PHASE_CAPTURE);
    gtk_widget_add_controller(GTK_WIDGET(view), controller);
    return SignalConnection::connect(controller, "event",
        +[](GtkEventControllerLegacy*, GdkEvent* event, gpointer self) -> gboolean {
            GdkEventType type = gdk_event_get_event_type(event);
            if (type == GDK_BUTTON_PRESS || type == GDK_KEY_PRESS || type == GDK_TOUCH_BEGIN)
                static_cast<DownloadGuard*>(self)->m_gate.userInput(DownloadGate::Clock::now());
            return FALSE;
        }, this);
}

void DownloadGuard::admit(WebKitDownload* download, WebKitWebView* parentView) {
    DownloadDestination::adopt(download);
    track(download);
    DownloadGate::Verdict verdict = m_gate.arrive(DownloadGate::Clock::now());
    if (verdict == DownloadGate::Verdict::Start)
        return;
    // Held before WebKit asks where it goes, so nothing is written meanwhile.
    DownloadDestination::hold(download);
    if (verdict == DownloadGate::Verdict::Drop) {
        WebKitURIRequest* request = webkit_download_get_request(download);
        g_info("Dropped a download nobody asked for: %s", request ? webkit_uri_request_get_uri(request) : "");
        webkit_download_cancel(download);
        return;
    }
    m_held.emplace_back(download);
    if (verdict == DownloadGate::Verdict::Ask)
        ask(parentView);
}

// WebKit emits "finished" after a success, a failure and a cancellation alike.
void DownloadGuard::track(WebKitDownload* download) {
    m_running.emplace_back(Ref<WebKitDownload>(download), SignalConnection::connect(download, "finished",
        +[](WebKitDownload* done, gpointer self) {
            auto& running = static_cast<DownloadGuard*>(self)->m_running;
            auto it = std::find_if(running.begin(), running.end(), [&](const auto& entry) { return entry.first.get() == done; });
            // GObject lets a handler disconnect itself while it runs.
            if (it != running.end())
                running.erase(it);
        }, this));
}

void DownloadGuard::ask(WebKitWebView* parentView) {
    GtkRoot* root = parentView ? gtk_widget_get_root(GTK_WIDGET(parentView)) : nullptr;
    GtkWindow* parent = root && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
    ScriptDialogs::Request request;
    request.message = "This page is trying to download several files at once";
    request.responses = { { kBlock, "_Block" }, { kAllow, "_Allow" } };
    request.defaultResponse = kBlock;
    request.closeResponse = kBlock;
    Lifetime::Watch alive = m_lifetime.watch();
    bool asked = m_host.ask(parent, request, [this, alive](const ScriptDialogs::Answer& answer) {
        if (alive.alive())
            this->answer(answer.response == kAllow);
    });
    if (!asked)
        answer(false);
}

void DownloadGuard::answer(bool allow) {
    if (!m_gate.asking())
        return;
    m_gate.answer(allow, DownloadGate::Clock::now());
    auto held = std::move(m_held);
    m_held.clear();
    for (auto& download : held) {
        if (allow)
            DownloadDestination::release(download.get());
        else
            webkit_download_cancel(download.get());
    }
}

} // namespace orvane
