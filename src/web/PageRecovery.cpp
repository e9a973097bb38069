#include "PageRecovery.h"

namespace orvane {

PageRecovery::PageRecovery(WebKitWebView* view, Carried carried, std::function<void()> changed, std::function<void()> restart,
    std::chrono::milliseconds loadBound)
    : m_view(view)
    , m_changed(std::move(changed))
    , m_restart(std::move(restart))
    , m_failure(carried.failure)
    , m_lastCrash(carried.lastCrash)
    , m_loadBoundInterval(loadBound) {
    m_connections.push_back(SignalConnection::connect(view, "load-changed", onLoadChanged, this));
    m_connections.push_back(SignalConnection::connect(view, "load-failed", onLoadFailed, this));
    m_connections.push_back(SignalConnection::connect(view, "load-failed-with-tls-errors", onLoadFailedWithTLSErrors, this));
    m_connections.push_back(SignalConnection::connect(view, "web-process-terminated", onTerminated, this));
    m_connections.push_back(SignalConnection::connect(view, "notify::is-web-process-responsive", onResponsive, this));
    m_connections.push_back(SignalConnection::connect(g_network_monitor_get_default(), "network-changed", onNetworkChanged, this));
}

PageRecovery::~PageRecovery() {
    m_connections.clear();
    stopLoadBound();
    g_clear_handle_id(&m_crashReload, g_source_remove);
}

void PageRecovery::reload() {
    g_info("A page that was not there reloads");
    if ((m_failure == PageFailure::Kind::Crashed || m_failure == PageFailure::Kind::OutOfMemory) && m_restart)
        m_restart();
    else if (!m_failedAddress.empty())
        webkit_web_view_load_uri(m_view, m_failedAddress.c_str());
    else
        webkit_web_view_reload(m_view);
}

void PageRecovery::onLoadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer data) {
    auto* self = static_cast<PageRecovery*>(data);
    switch (event) {
    case WEBKIT_LOAD_STARTED:
        self->stopLoadBound();
        self->m_loadBound = g_timeout_add(guint(self->m_loadBoundInterval.count()), +[](gpointer data) -> gboolean {
            auto* self = static_cast<PageRecovery*>(data);
            self->m_loadBound = 0;
            const char* uri = webkit_web_view_get_uri(self->m_view);
            self->fail(PageFailure::Kind::TimedOut, uri);
            webkit_web_view_stop_loading(self->m_view);
            return G_SOURCE_REMOVE;
        }, self);
        break;
    case WEBKIT_LOAD_COMMITTED: {
        // The page is there from here on, unless the server answered with an error.
        WebKitWebResource* resource = webkit_web_view_get_main_resource(view);
        WebKitURIResponse* response = resource ? webkit_web_resource_get_response(resource) : nullptr;
        auto failure = response ? PageFailure::ofStatus(webkit_uri_response_get_status_code(response)) : std::nullopt;
        if (failure) {
            self->fail(*failure, webkit_web_view_get_uri(view));
        } else {
            self->m_failedAddress.clear();
            self->setFailure(std::nullopt);
        }
        break;
    }
    case WEBKIT_LOAD_FINISHED:
        self->stopLoadBound();
        break;
    case WEBKIT_LOAD_REDIRECTED:
        break;
    }
}

gboolean PageRecovery::onLoadFailed(WebKitWebView*, WebKitLoadEvent, const char* uri, GError* error, gpointer data) {
    auto* self = static_cast<PageRecovery*>(data);
    auto failure = error ? PageFailure::ofLoadError(g_quark_to_string(error->domain), error->code) : std::nullopt;
    if (!failure)
        return FALSE;
    g_info("A page could not load: %s", error->message);
    self->fail(*failure, uri);
    return TRUE; // no WebKit error page: the status page stands in
}

gboolean PageRecovery::onLoadFailedWithTLSErrors(WebKitWebView*, const char* uri, GTlsCertificate*, GTlsCertificateFlags, gpointer data) {
    static_cast<PageRecovery*>(data)->fail(PageFailure::Kind::Insecure, uri);
    return TRUE;
}

void PageRecovery::onTerminated(WebKitWebView*, WebKitWebProcessTerminationReason reason, gpointer data) {
    auto* self = static_cast<PageRecovery*>(data);
    if (reason == WEBKIT_WEB_PROCESS_TERMINATED_BY_API)
        return;
    auto kind = reason == WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT ? PageFailure::Kind::OutOfMemory : PageFailure::Kind::Crashed;
    g_message("An account's web process ended unexpectedly");
    auto now = PageFailure::Clock::now();
    bool reloads = PageFailure::reloadsAfterCrash(self->m_lastCrash, now);
    self->m_lastCrash = now;
    const char* uri = webkit_web_view_get_uri(self->m_view);
    self->fail(kind, uri);
    // Reloaded once WebKit is done with the ended process, not inside its signal.
    if (reloads && !self->m_crashReload) {
        self->m_crashReload = g_idle_add(+[](gpointer data) -> gboolean {
            auto* self = static_cast<PageRecovery*>(data);
            self->m_crashReload = 0;
            self->reload();
            return G_SOURCE_REMOVE;
        }, self);
    }
}

void PageRecovery::onResponsive(WebKitWebView* view, GParamSpec*, gpointer data) {
    auto* self = static_cast<PageRecovery*>(data);
    bool responsive = webkit_web_view_get_is_web_process_responsive(view);
    if (!responsive && !self->m_failure)
        self->setFailure(PageFailure::Kind::NotResponding);
    else if (responsive && self->m_failure == PageFailure::Kind::NotResponding)
        self->setFailure(std::nullopt);
}

void PageRecovery::onNetworkChanged(GNetworkMonitor*, gboolean available, gpointer data) {
    auto* self = static_cast<PageRecovery*>(data);
    if (available && self->m_failure && PageFailure::reloadsWhenOnline(*self->m_failure))
        self->reload();
}

void PageRecovery::fail(PageFailure::Kind kind, const char* uri) {
    stopLoadBound();
    if (uri && *uri)
        m_failedAddress = uri;
    setFailure(kind);
}

void PageRecovery::setFailure(std::optional<PageFailure::Kind> failure) {
    if (failure == m_failure)
        return;
    m_failure = failure;
    if (m_changed)
        m_changed();
}

void PageRecovery::stopLoadBound() {
    g_clear_handle_id(&m_loadBound, g_source_remove);
}

} // namespace orvane
