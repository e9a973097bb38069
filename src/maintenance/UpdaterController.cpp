#include "UpdaterController.h"

#include "BuildConfig.h"
#include "GRef.h"
#include "SystemVersion.h"

#include <glib.h>
#include <glib/gi18n-lib.h>
#include <libsoup/soup.h>

namespace orvane {

namespace {

UpdaterController::Result failure(const std::string& currentVersion, std::string error) {
    UpdaterController::Result result;
    result.kind = UpdaterController::Result::Kind::Failed;
    result.currentVersion = currentVersion;
    result.error = std::move(error);
    return result;
}

} // namespace

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
    m_lifetime.end();
    if (m_checking)
        g_cancellable_cancel(m_checking.get());
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
    HTTPFetch::Request request;
    request.address = m_configuration.feedURL;
    request.maxBytes = Appcast::kMaxFeedBytes;
    request.timeoutMilliseconds = m_configuration.timeoutMilliseconds;
    request.bypassCache = true;
    m_checking = adopt(g_cancellable_new());
    setCanCheck(false);
    HTTPFetch::start(std::move(request), m_checking.get(),
        [this, alive = m_lifetime.watch(), done = std::move(done)](HTTPFetch::Outcome outcome) {
            if (!alive.alive())
                return;
            m_checking.reset();
            Result result = resultOf(outcome, m_configuration);
            setCanCheck(true);
            if (done)
                done(result);
        });
}

UpdaterController::Result UpdaterController::resultOf(const HTTPFetch::Outcome& outcome, const Configuration& configuration) {
    const std::string& version = configuration.currentVersion;
    switch (outcome.failure) {
    case HTTPFetch::Failure::None:
        return evaluate(outcome.body, configuration);
    case HTTPFetch::Failure::Status: {
        GCharPtr error(g_strdup_printf(_("The update server answered with an error (HTTP %u)."), outcome.status));
        return failure(version, error.get());
    }
    case HTTPFetch::Failure::TooLarge:
        return failure(version, _("The update feed is too large to be read."));
    case HTTPFetch::Failure::TimedOut:
        return failure(version, _("The update server did not answer in time."));
    case HTTPFetch::Failure::Transport: {
        GCharPtr error(g_strdup_printf(_("Orvane could not reach the update server: %s"), outcome.error.c_str()));
        return failure(version, error.get());
    }
    case HTTPFetch::Failure::Address:
        return failure(version, _("The update server sent Orvane to an address it does not follow."));
    case HTTPFetch::Failure::Cancelled:
        break;
    }
    return failure(version, _("The check for updates was interrupted."));
}

UpdaterController::Result UpdaterController::evaluate(std::string_view feed, const Configuration& configuration) {
    auto appcast = Appcast::parse(feed);
    if (!appcast)
        return failure(configuration.currentVersion, _("The update feed could not be read."));
    if (appcast->items().empty())
        return failure(configuration.currentVersion, _("The update feed lists no releases."));
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
