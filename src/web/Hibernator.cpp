#include "Hibernator.h"

#include "PageProbe.h"
#include "PageScripts.h"
#include "WebViewManager.h"
#include "HeapBox.h"

#include <algorithm>

namespace orvane {

namespace {

// Often enough that an account sleeps soon after its time, rarely enough to
// cost nothing: a quarter of the limit, within [250 ms, 30 s].
std::chrono::milliseconds sweepInterval(std::chrono::seconds limit) {
    return std::clamp<std::chrono::milliseconds>(std::chrono::duration_cast<std::chrono::milliseconds>(limit) / 4,
        std::chrono::milliseconds(250), std::chrono::milliseconds(30000));
}

} // namespace

Hibernator::Hibernator(WebViewManager& manager)
    : m_manager(manager)
    , m_cancellable(adopt(g_cancellable_new())) {
    restartTimer();
}

Hibernator::~Hibernator() {
    g_clear_handle_id(&m_timer, g_source_remove);
    g_cancellable_cancel(m_cancellable.get());
}

void Hibernator::setPolicy(HibernationPolicy policy) {
    m_policy = policy;
    restartTimer();
}

void Hibernator::restartTimer() {
    g_clear_handle_id(&m_timer, g_source_remove);
    if (!m_policy.limit())
        return;
    m_timer = g_timeout_add(guint(sweepInterval(*m_policy.limit()).count()), +[](gpointer self) -> gboolean {
        static_cast<Hibernator*>(self)->sweep();
        return G_SOURCE_CONTINUE;
    }, this);
}

void Hibernator::selectionChanged(const std::optional<std::string>& selectedID) {
    if (selectedID == m_selected)
        return;
    WebKitWebView* left = m_selected ? m_manager.webView(*m_selected) : nullptr;
    if (left)
        m_idleSince[*m_selected] = Clock::now();
    if (left && m_policy.limit() && m_manager.hibernates(*m_selected)) {
        takeSnapshot(left, [this, id = *m_selected](Ref<GdkTexture> snapshot) {
            if (snapshot && id != m_selected)
                m_lastSeen[id] = std::move(snapshot);
        });
    }
    m_selected = selectedID;
    if (m_selected) {
        m_idleSince.erase(*m_selected);
        m_lastSeen.erase(*m_selected);
    }
}

void Hibernator::pageLoaded(const std::string& accountID) {
    if (accountID != m_selected)
        m_idleSince[accountID] = Clock::now();
}

void Hibernator::forget(const std::string& accountID) {
    m_idleSince.erase(accountID);
    m_lastSeen.erase(accountID);
}

void Hibernator::hibernateNow(const std::string& accountID) {
    check(accountID, true);
}

bool Hibernator::maySleep(const std::string& accountID, bool ignoreIdleTime, bool composing) const {
    auto idle = m_idleSince.find(accountID);
    if ((idle == m_idleSince.end() && !ignoreIdleTime) || !m_manager.webView(accountID) || !m_manager.hibernates(accountID))
        return false;
    HibernationPolicy::Activity activity = m_manager.activity(accountID);
    activity.selected = activity.selected || accountID == m_selected;
    activity.composing = composing;
    if (ignoreIdleTime)
        return !HibernationPolicy::keepsAwake(activity);
    return m_policy.maySleep(activity, Clock::now() - idle->second);
}

void Hibernator::sweep() {
    std::vector<std::string> due;
    for (const auto& [id, since] : m_idleSince)
        if (maySleep(id, false))
            due.push_back(id);
    for (const auto& id : due)
        check(id, false);
}

void Hibernator::check(const std::string& accountID, bool ignoreIdleTime) {
    if (m_checking.contains(accountID) || !maySleep(accountID, ignoreIdleTime))
        return;
    const MailService* service = m_manager.serviceOf(accountID);
    WebKitWebView* view = m_manager.webView(accountID);
    if (!service || !view)
        return;
    if (!service->typingJS || service->typingJS->empty()) {
        snapshotThenSleep(accountID, ignoreIdleTime);
        return;
    }
    m_checking.insert(accountID);
    // Anything but a plain "none" (no answer, a page of another site that
    // throws) keeps the page awake: typed text is never guessed away.
    PageProbe::photoURL(view, *service->typingJS, {},
        [this, accountID, ignoreIdleTime, cancellable = m_cancellable](std::optional<std::string> answer) {
            if (g_cancellable_is_cancelled(cancellable.get()))
                return;
            m_checking.erase(accountID);
            if (answer == "none")
                snapshotThenSleep(accountID, ignoreIdleTime);
            else
                g_debug("An idle account stays awake: its page %s", answer ? "holds typed text" : "did not answer");
        },
        m_cancellable.get(), PageScripts::sourceURI(service->typingScriptName));
}

void Hibernator::takeSnapshot(WebKitWebView* view, Snapshot done) {
    struct Pending {
        Snapshot done;
        Ref<GCancellable> cancellable;
    };
    webkit_web_view_get_snapshot(view, WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE, m_cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            auto pending = HeapBox::take<Pending>(data);
            GErrorPtr error;
            auto snapshot = adopt(webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(source), result, GErrorOut(error)));
            if (g_cancellable_is_cancelled(pending->cancellable.get()))
                return;
            if (error)
                g_debug("No snapshot of a page: %s", error->message);
            pending->done(std::move(snapshot));
        },
        HeapBox::make<Pending>(Pending { std::move(done), m_cancellable }));
}

void Hibernator::snapshotThenSleep(const std::string& accountID, bool ignoreIdleTime) {
    WebKitWebView* view = m_manager.webView(accountID);
    if (!view || !maySleep(accountID, ignoreIdleTime))
        return;
    m_checking.insert(accountID);
    takeSnapshot(view, [this, accountID, ignoreIdleTime, view](Ref<GdkTexture> snapshot) {
        m_checking.erase(accountID);
        // The user may have come back to it meanwhile.
        if (!maySleep(accountID, ignoreIdleTime) || m_manager.webView(accountID) != view)
            return;
        auto lastSeen = m_lastSeen.find(accountID);
        if (!snapshot && lastSeen != m_lastSeen.end())
            snapshot = std::move(lastSeen->second);
        forget(accountID);
        m_manager.putToSleep(accountID, std::move(snapshot));
    });
}

} // namespace orvane
