#include "Beacon.h"

#include "BuildConfig.h"
#include "HTTPSession.h"
#include "SystemVersion.h"
#include "HeapBox.h"

#include <glib.h>
#include <libsoup/soup.h>

#include <cmath>

namespace orvane {

namespace {

double systemClock() {
    return static_cast<double>(g_get_real_time()) / G_USEC_PER_SEC;
}

// Query values as a URL builder writes them: everything outside the
// characters a query may carry is percent-encoded, and so are "&", "=", "+"
// and "#", which would change the query's meaning.
std::string queryValue(const std::string& value) {
    return GCharPtr(g_uri_escape_string(value.c_str(), "!$'()*,;:@/?", FALSE)).get();
}

bool isHTTPEndpoint(const std::string& endpoint) {
    GUri* uri = g_uri_parse(endpoint.c_str(), G_URI_FLAGS_ENCODED, nullptr);
    if (!uri)
        return false;
    const char* scheme = g_uri_get_scheme(uri);
    const char* host = g_uri_get_host(uri);
    bool ok = scheme && (!g_ascii_strcasecmp(scheme, "https") || !g_ascii_strcasecmp(scheme, "http")) && host && *host;
    g_uri_unref(uri);
    return ok;
}

// One request in flight. It owns its cancellable, which its time-out and the
// beacon's teardown cancel; it never refers back to the beacon.
struct PingRequest {
    Ref<GCancellable> cancellable = adopt(g_cancellable_new());
    Ref<GCancellable> owner;
    gulong ownerHandler = 0;
    guint timeout = 0;

    static void cancel(GCancellable*, gpointer data) {
        g_cancellable_cancel(static_cast<PingRequest*>(data)->cancellable.get());
    }

    static gboolean timedOut(gpointer data) {
        auto* request = static_cast<PingRequest*>(data);
        request->timeout = 0;
        g_cancellable_cancel(request->cancellable.get());
        return G_SOURCE_REMOVE;
    }

    static void finished(GObject* session, GAsyncResult* result, gpointer data) {
        auto request = HeapBox::take<PingRequest>(data);
        // The answer, its status and any error are of no interest.
        Ref<GInputStream> body = adopt(soup_session_send_finish(SOUP_SESSION(session), result, nullptr));
        if (body)
            g_input_stream_close_async(body.get(), G_PRIORITY_DEFAULT, nullptr, nullptr, nullptr);
        g_clear_handle_id(&request->timeout, g_source_remove);
        g_cancellable_disconnect(request->owner.get(), request->ownerHandler);
    }
};

} // namespace

Beacon::Configuration Beacon::defaultConfiguration() {
    Configuration configuration;
    const char* override = g_getenv("ORVANE_PING_URL");
    configuration.endpoint = override ? override : build::kPingURL;
    configuration.version = build::kVersion;
    configuration.systemVersion = SystemVersion::current().value_or("");
    configuration.preferencesPath = Preferences::defaultPath();
    return configuration;
}

Beacon::Beacon(Configuration configuration, Clock clock, Sender sender)
    : m_configuration(std::move(configuration))
    , m_preferences(m_configuration.preferencesPath)
    , m_clock(clock ? std::move(clock) : Clock(systemClock))
    , m_sender(std::move(sender))
    , m_cancellable(adopt(g_cancellable_new())) {
    if (!isHTTPEndpoint(m_configuration.endpoint))
        m_configuration.endpoint.clear();
}

Beacon::~Beacon() {
    g_cancellable_cancel(m_cancellable.get());
}

void Beacon::start() {
    if (m_started)
        return;
    m_started = true;
    ping();
}

void Beacon::applicationBecameActive() {
    if (m_started)
        ping();
}

std::string Beacon::installID() {
    if (auto stored = m_preferences.string(kInstallIDKey); stored && g_uuid_string_is_valid(stored->c_str()))
        return *stored;
    GCharPtr random(g_uuid_string_random());
    std::string id = GCharPtr(g_ascii_strup(random.get(), -1)).get();
    m_preferences.setString(kInstallIDKey, id);
    return id;
}

void Beacon::ping() {
    if (!isEnabled())
        return;
    double now = m_clock();
    double last = m_preferences.number(kLastPingKey).value_or(0);
    // A time far ahead (a clock set back, a damaged file) would hold the ping
    // back for as long: it counts as no ping.
    if (last > now + kMinimumInterval)
        last = 0;
    if (!std::isfinite(now) || now - last < kMinimumInterval)
        return;
    // Recorded before sending, so a ping that fails still counts.
    m_preferences.setNumber(kLastPingKey, now);
    std::string uri = pingURI(m_configuration.endpoint, installID(), m_configuration.version,
        m_configuration.systemVersion, now);
    if (!uri.empty())
        send(uri);
}

std::string Beacon::pingURI(const std::string& endpoint, const std::string& installID,
    const std::string& version, const std::string& systemVersion, double now) {
    if (!isHTTPEndpoint(endpoint) || !std::isfinite(now) || std::fabs(now) > 1e15)
        return {};
    GUri* base = g_uri_parse(endpoint.c_str(), G_URI_FLAGS_ENCODED, nullptr);
    std::string query = "id=" + queryValue(installID)
        + "&v=" + queryValue(version.empty() ? "?" : version)
        + "&os=" + queryValue(systemVersion.empty() ? "?" : systemVersion)
        + "&t=" + std::to_string(static_cast<long long>(std::trunc(now)));
    const char* path = g_uri_get_path(base);
    GUri* built = g_uri_build(G_URI_FLAGS_ENCODED, g_uri_get_scheme(base), g_uri_get_userinfo(base),
        g_uri_get_host(base), g_uri_get_port(base), path && *path ? path : "/", query.c_str(), nullptr);
    GCharPtr text(g_uri_to_string(built));
    g_uri_unref(built);
    g_uri_unref(base);
    return text ? text.get() : std::string();
}

void Beacon::send(const std::string& uri) {
    if (m_sender) {
        m_sender(uri);
        return;
    }
    Ref<SoupMessage> message = adopt(soup_message_new(SOUP_METHOD_GET, uri.c_str()));
    if (!message)
        return;
    // Always asks the server, never a cached answer.
    soup_message_disable_feature(message.get(), SOUP_TYPE_CACHE);
    auto* request = HeapBox::make<PingRequest>();
    request->owner = m_cancellable;
    request->ownerHandler = g_cancellable_connect(m_cancellable.get(), G_CALLBACK(PingRequest::cancel), request, nullptr);
    request->timeout = g_timeout_add(m_configuration.timeoutMilliseconds, PingRequest::timedOut, request);
    soup_session_send_async(HTTPSession::shared(), message.get(), G_PRIORITY_DEFAULT,
        request->cancellable.get(), PingRequest::finished, request);
}

} // namespace orvane
