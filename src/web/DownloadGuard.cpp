#include "DownloadGuard.h"

#include "DownloadDestination.h"
#include "WebHost.h"

#include <glib/gi18n-lib.h>
#include <libsoup/soup.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <optional>

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

namespace {

WebHost::DownloadEnd failureOf(WebKitDownload* download, const GError* error) {
    if (DownloadDestination::unplaced(download))
        return WebHost::DownloadEnd::NoPlace;
    if (g_error_matches(error, WEBKIT_DOWNLOAD_ERROR, WEBKIT_DOWNLOAD_ERROR_NETWORK))
        return WebHost::DownloadEnd::NetworkFailed;
    if (g_error_matches(error, WEBKIT_DOWNLOAD_ERROR, WEBKIT_DOWNLOAD_ERROR_DESTINATION))
        return WebHost::DownloadEnd::WriteFailed;
    return WebHost::DownloadEnd::Cancelled;
}

// WebKit reports a download whose connection closed early as finished. A
// response without a content coding says how many bytes it has; with one,
// the decoded size may be smaller or larger, and nothing is known.
bool truncated(WebKitDownload* download) {
    WebKitURIResponse* response = webkit_download_get_response(download);
    guint64 expected = response ? webkit_uri_response_get_content_length(response) : 0;
    SoupMessageHeaders* headers = response ? webkit_uri_response_get_http_headers(response) : nullptr;
    const char* coding = headers ? soup_message_headers_get_one(headers, "Content-Encoding") : nullptr;
    if (!expected || (coding && g_ascii_strcasecmp(coding, "identity") != 0))
        return false;
    return webkit_download_get_received_data_length(download) < expected;
}

} // namespace

void DownloadGuard::admit(WebKitDownload* download, WebKitWebView* parentView) {
    DownloadDestination::adopt(download);
    track(download);
    DownloadGate::Verdict verdict = m_gate.arrive(DownloadGate::Clock::now());
    if (verdict == DownloadGate::Verdict::Start) {
        start(download);
        return;
    }
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

// WebKit emits "failed" and then "finished" after a failure or a
// cancellation, "finished" alone after a success.
void DownloadGuard::track(WebKitDownload* download) {
    auto tracked = std::make_unique<Tracked>(this, Ref<WebKitDownload>(download));
    tracked->failed = SignalConnection::connect(download, "failed",
        +[](WebKitDownload* failed, GError* error, gpointer data) {
            static_cast<Tracked*>(data)->failure = failureOf(failed, error);
        }, tracked.get());
    tracked->finished = SignalConnection::connect(download, "finished",
        +[](WebKitDownload*, gpointer data) {
            auto* tracked = static_cast<Tracked*>(data);
            tracked->guard->ended(tracked);
        }, tracked.get());
    m_running.push_back(std::move(tracked));
}

void DownloadGuard::start(WebKitDownload* download) {
    auto it = std::find_if(m_running.begin(), m_running.end(), [&](const auto& t) { return t->download.get() == download; });
    if (it == m_running.end() || (*it)->started)
        return;
    (*it)->started = true;
    m_host.downloadStarted(download, webkit_download_get_web_view(download));
}

void DownloadGuard::ended(Tracked* tracked) {
    auto it = std::find_if(m_running.begin(), m_running.end(), [&](const auto& t) { return t.get() == tracked; });
    if (it == m_running.end())
        return;
    // GObject lets a handler disconnect itself while it runs.
    std::unique_ptr<Tracked> done = std::move(*it);
    m_running.erase(it);
    if (!done->started)
        return;
    WebHost::DownloadEnd end = done->failure.value_or(WebHost::DownloadEnd::Finished);
    if (end == WebHost::DownloadEnd::Finished && truncated(done->download.get()))
        end = WebHost::DownloadEnd::NetworkFailed; // what came is kept
    const char* destination = webkit_download_get_destination(done->download.get());
    std::string path = end == WebHost::DownloadEnd::Finished && destination ? destination : "";
    m_host.downloadEnded(done->download.get(), end, path);
}

void DownloadGuard::ask(WebKitWebView* parentView) {
    GtkRoot* root = parentView ? gtk_widget_get_root(GTK_WIDGET(parentView)) : nullptr;
    GtkWindow* parent = root && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
    ScriptDialogs::Request request;
    request.message = _("This page is trying to download several files at once");
    request.responses = { { kBlock, _("_Block") }, { kAllow, _("_Allow") } };
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
        if (allow) {
            start(download.get());
            DownloadDestination::release(download.get());
        } else
            webkit_download_cancel(download.get());
    }
}

} // namespace orvane
