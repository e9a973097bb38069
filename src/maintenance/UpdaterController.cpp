#include "UpdaterController.h"

#include "BuildConfig.h"
#include "HTTPSession.h"
#include "SystemVersion.h"

#include <glib.h>
#include <libsoup/soup.h>

namespace orvane {

namespace {

constexpr gsize kReadChunk = 64 * 1024;

UpdaterController::Result failure(const std::string& currentVersion, std::string error) {
    UpdaterController::Result result;
    result.kind = UpdaterController::Result::Kind::Failed;
    result.currentVersion = currentVersion;
    result.error = std::move(error);
    return result;
}

} // namespace

struct UpdaterController::Check {
    UpdaterController* owner = nullptr; // null once the controller is gone
    ResultCallback done;
    Ref<GCancellable> cancellable = adopt(g_cancellable_new());
    Ref<SoupMessage> message;
    Ref<GInputStream> body;
    std::string bytes;
    guint timeout = 0;
    bool timedOut = false;

    ~Check() {
        g_clear_handle_id(&timeout, g_source_remove);
        if (body)
            g_input_stream_close_async(body.get(), G_PRIORITY_DEFAULT, nullptr, nullptr, nullptr);
    }
};

UpdaterController::Configuration UpdaterController::defaultConfiguration() {
    Configuration configuration;
    const char* override = g_getenv("ORVANE_APPCAST_URL");
    configuration.feedURL = override ? override : build::kAppcastURL;
    configuration.currentVersion = build::kVersion;
    configuration.systemVersion = SystemVersion::current();
    return configuration;
}

UpdaterController::UpdaterController(Configuration configuration)
    : m_configuration(std::move(configuration)) {
    if (!Appcast::isWebAddress(m_configuration.feedURL))
        m_configuration.feedURL.clear();
    m_canCheck = !m_configuration.feedURL.empty();
}

UpdaterController::~UpdaterController() {
    if (m_checking) {
        m_checking->owner = nullptr;
        g_cancellable_cancel(m_checking->cancellable.get());
    }
}

Observers<bool>::Subscription UpdaterController::observeCanCheckForUpdates(Observers<bool>::Callback callback) {
    callback(m_canCheck);
    return m_canCheckObservers.add(std::move(callback));
}

void UpdaterController::setCanCheck(bool value) {
    if (m_canCheck == value)
        return;
    m_canCheck = value;
    m_canCheckObservers.notify(value);
}

void UpdaterController::checkForUpdates(ResultCallback done) {
    if (!m_canCheck)
        return;
    Ref<SoupMessage> message = adopt(soup_message_new(SOUP_METHOD_GET, m_configuration.feedURL.c_str()));
    if (!message)
        return;
    soup_message_disable_feature(message.get(), SOUP_TYPE_CACHE);
    auto* check = new Check;
    check->owner = this;
    check->done = std::move(done);
    check->message = message;
    check->timeout = g_timeout_add(m_configuration.timeoutMilliseconds, onTimeout, check);
    m_checking = check;
    setCanCheck(false);
    soup_session_send_async(HTTPSession::shared(), message.get(), G_PRIORITY_DEFAULT, check->cancellable.get(), onSent, check);
}

gboolean UpdaterController::onTimeout(gpointer data) {
    auto* check = static_cast<Check*>(data);
    check->timeout = 0;
    check->timedOut = true;
    g_cancellable_cancel(check->cancellable.get());
    return G_SOURCE_REMOVE;
}

void UpdaterController::onSent(GObject* session, GAsyncResult* asyncResult, gpointer data) {
    auto* check = static_cast<Check*>(data);
    GErrorPtr error;
    check->body = adopt(soup_session_send_finish(SOUP_SESSION(session), asyncResult, GErrorOut(error)));
    if (!check->owner) {
        delete check;
        return;
    }
    if (!check->body) {
        failed(check, error.get());
        return;
    }
    const std::string& version = check->owner->m_configuration.currentVersion;
    guint status = soup_message_get_status(check->message.get());
    if (status < 200 || status > 299) {
        complete(check, failure(version, "The update server answered with an error (HTTP " + std::to_string(status) + ")."));
        return;
    }
    goffset length = soup_message_headers_get_content_length(soup_message_get_response_headers(check->message.get()));
    if (length > static_cast<goffset>(Appcast::kMaxFeedBytes)) {
        complete(check, failure(version, "The update feed is too large to be read."));
        return;
    }
    readMore(check);
}

void UpdaterController::readMore(Check* check) {
    g_input_stream_read_bytes_async(check->body.get(), kReadChunk, G_PRIORITY_DEFAULT, check->cancellable.get(), onRead, check);
}

void UpdaterController::onRead(GObject* stream, GAsyncResult* asyncResult, gpointer data) {
    auto* check = static_cast<Check*>(data);
    GErrorPtr error;
    GBytesPtr chunk(g_input_stream_read_bytes_finish(G_INPUT_STREAM(stream), asyncResult, GErrorOut(error)));
    if (!check->owner) {
        delete check;
        return;
    }
    if (!chunk) {
        failed(check, error.get());
        return;
    }
    gsize size = 0;
    const auto* bytes = static_cast<const char*>(g_bytes_get_data(chunk.get(), &size));
    if (size == 0) {
        complete(check, evaluate(check->bytes, check->owner->m_configuration));
        return;
    }
    if (check->bytes.size() + size > Appcast::kMaxFeedBytes) {
        complete(check, failure(check->owner->m_configuration.currentVersion, "The update feed is too large to be read."));
        return;
    }
    check->bytes.append(bytes, size);
    readMore(check);
}

void UpdaterController::failed(Check* check, const GError* error) {
    std::string text;
    if (check->timedOut)
        text = "The update server did not answer in time.";
    else if (error && !isCancelled(error))
        text = std::string("Orvane could not reach the update server: ") + error->message;
    else
        text = "The check for updates was interrupted.";
    complete(check, failure(check->owner->m_configuration.currentVersion, std::move(text)));
}

void UpdaterController::complete(Check* check, Result result) {
    UpdaterController* owner = check->owner;
    ResultCallback done = std::move(check->done);
    owner->m_checking = nullptr;
    delete check;
    owner->setCanCheck(true);
    if (done)
        done(result);
}

UpdaterController::Result UpdaterController::evaluate(std::string_view feed, const Configuration& configuration) {
    auto appcast = Appcast::parse(feed);
    if (!appcast)
        return failure(configuration.currentVersion, "The update feed could not be read.");
    if (appcast->items().empty())
        return failure(configuration.currentVersion, "The update feed lists no releases.");
    Result result;
    result.kind = Result::Kind::UpToDate;
    result.currentVersion = configuration.currentVersion;
    const Appcast::Item* newest = appcast->newest(configuration.systemVersion);
    if (newest && Appcast::compareVersions(newest->version, configuration.currentVersion) > 0) {
        result.kind = Result::Kind::UpdateAvailable;
        result.item = *newest;
        result.notes = Appcast::plainText(newest->descriptionHTML, kMaxNotesBytes);
    }
    return result;
}

} // namespace orvane
