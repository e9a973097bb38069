#include "UnreadPoller.h"

#include <cmath>
#include <memory>

namespace orvane {

UnreadPoller::UnreadPoller(WebKitWebView* view, std::string script, std::string sourceURI,
    std::chrono::milliseconds interval, Allowed allowed, Report report)
    : m_script(std::move(script))
    , m_sourceURI(std::move(sourceURI))
    , m_allowed(std::move(allowed))
    , m_report(std::move(report))
    , m_cancellable(adopt(g_cancellable_new())) {
    g_weak_ref_init(&m_view, view);
    m_timer = g_timeout_add(guint(interval.count()), +[](gpointer self) -> gboolean {
        static_cast<UnreadPoller*>(self)->poll();
        return G_SOURCE_CONTINUE;
    }, this);
}

UnreadPoller::~UnreadPoller() {
    g_clear_handle_id(&m_timer, g_source_remove);
    g_cancellable_cancel(m_cancellable.get());
    g_weak_ref_clear(&m_view);
}

std::optional<int64_t> UnreadPoller::countOf(JSCValue* value) {
    if (!value || !jsc_value_is_number(value))
        return std::nullopt;
    double number = jsc_value_to_double(value);
    if (!std::isfinite(number) || number < 0 || number != std::floor(number) || number >= 9.0e18)
        return std::nullopt;
    return static_cast<int64_t>(number);
}

void UnreadPoller::poll() {
    Ref<WebKitWebView> view = adopt(static_cast<WebKitWebView*>(g_weak_ref_get(&m_view)));
    if (!view || (m_allowed && !m_allowed()))
        return;
    // The poller outlives every poll it starts: its cancellable ends them.
    webkit_web_view_evaluate_javascript(view.get(), m_script.c_str(), static_cast<gssize>(m_script.size()), nullptr,
        m_sourceURI.c_str(), m_cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer self) {
            GErrorPtr error;
            auto value = adopt(webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result,
                GErrorOut(error)));
            if (isCancelled(error.get()))
                return;
            auto* poller = static_cast<UnreadPoller*>(self);
            auto count = countOf(value.get());
            // Still the page the count may come from: it may have moved on.
            if (count && (!poller->m_allowed || poller->m_allowed()))
                poller->m_report(*count);
        },
        this);
}

} // namespace orvane
