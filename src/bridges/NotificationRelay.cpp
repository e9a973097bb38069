#include "NotificationRelay.h"

#include "Account.h"
#include "GRef.h"
#include "PageBridges.h"
#include "MailService.h"
#include "WebHost.h"
#include "WebViewManager.h"
#include "HeapBox.h"

#include <gio/gio.h>

#include <algorithm>
#include <cmath>

namespace orvane {

namespace {

// For the fdo notification servers that read markup in bodies.
std::string escapedMarkup(const std::string& text) {
    GCharPtr escaped(g_markup_escape_text(text.data(), static_cast<gssize>(text.size())));
    return escaped ? escaped.get() : "";
}

// A member of the message when it is a text; nothing otherwise.
std::optional<std::string> textMember(JSCValue* object, const char* name) {
    if (!jsc_value_object_has_property(object, name))
        return std::nullopt;
    auto value = adopt(jsc_value_object_get_property(object, name));
    if (!value || !jsc_value_is_string(value.get()))
        return std::nullopt;
    // As bytes: a page's text may hold NUL characters.
    GBytesPtr bytes(jsc_value_to_string_as_bytes(value.get()));
    if (!bytes)
        return std::nullopt;
    gsize size = 0;
    const auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
    return std::string(data ? data : "", data ? size : 0);
}

} // namespace

struct NotificationRelay::TimerData {
    NotificationRelay* relay; // valid while the timer exists: the relay removes it
    std::string accountID;
};

NotificationRelay::NotificationRelay(WebViewManager& manager)
    : m_manager(manager) {
    m_manager.setMessageReceiver(std::string(PageBridges::kNotifyHandler),
        [this](WebKitWebView* sender, JSCValue* body) { receive(sender, body); });
}

NotificationRelay::~NotificationRelay() {
    m_manager.setMessageReceiver(std::string(PageBridges::kNotifyHandler), {});
    for (auto& [id, budget] : m_budgets)
        g_clear_handle_id(&budget.timer, g_source_remove);
}

std::optional<NotificationRelay::Message> NotificationRelay::parse(JSCValue* body) {
    if (!body || !jsc_value_is_object(body) || jsc_value_is_array(body) || jsc_value_is_function(body))
        return std::nullopt;
    return NotificationFields::from({ textMember(body, "id"), textMember(body, "title"), textMember(body, "body"),
        textMember(body, "tag") });
}

NotificationRelay::Content NotificationRelay::content(const Message& message, const std::string& accountID,
    const std::string& label, bool markupBody) {
    std::string name = NotificationFields::trimmed(NotificationFields::plainText(label, kMaxTitleChars, false));
    if (name.empty())
        name = "Orvane";
    Content content;
    content.id = message.tag.empty() ? newUUID() : "orvane-" + accountID + "-" + message.tag;
    content.title = message.title.empty() ? name : message.title;
    // GNotification has no subtitle: it leads the body instead.
    std::string subtitle = message.title.empty() ? std::string() : name;
    std::string body = subtitle.empty() ? message.body
        : message.body.empty()           ? subtitle
                                         : subtitle + "\n" + message.body;
    if (!body.empty())
        content.body = markupBody ? escapedMarkup(body) : body;
    return content;
}

void NotificationRelay::receive(WebKitWebView* sender, JSCValue* body) {
    auto message = parse(body);
    if (!message || !sender)
        return;
    AccountStore* store = m_manager.store();
    if (!store || !store->notificationsEnabled())
        return;
    // Pop-ups are no account's main view.
    auto accountID = m_manager.accountID(sender);
    if (!accountID)
        return;
    offer(*accountID, std::move(*message));
}

void NotificationRelay::refill(Budget& budget) const {
    int64_t now = g_get_monotonic_time();
    if (budget.updatedAt) {
        double earned = double(now - budget.updatedAt) / (double(kRefillMs) * 1000.0);
        budget.tokens = std::min(double(kBurst), budget.tokens + earned);
    }
    budget.updatedAt = now;
}

void NotificationRelay::offer(const std::string& accountID, Message message) {
    Budget& budget = m_budgets[accountID];
    refill(budget);
    if (budget.tokens >= 1 && !budget.waiting) {
        budget.tokens -= 1;
        post(accountID, message);
        return;
    }
    budget.waiting = std::move(message);
    if (budget.timer)
        return;
    auto delay = guint(std::ceil(std::max(0.0, 1 - budget.tokens) * kRefillMs));
    budget.timer = g_timeout_add_full(G_PRIORITY_DEFAULT, std::max(delay, 1u),
        +[](gpointer data) -> gboolean {
            auto* timer = static_cast<TimerData*>(data);
            timer->relay->postWaiting(timer->accountID);
            return G_SOURCE_REMOVE;
        },
        HeapBox::make<TimerData>(TimerData { this, accountID }), HeapBox::free<TimerData>);
}

void NotificationRelay::postWaiting(const std::string& accountID) {
    auto it = m_budgets.find(accountID);
    if (it == m_budgets.end())
        return;
    Budget& budget = it->second;
    budget.timer = 0;
    if (!budget.waiting)
        return;
    Message message = std::move(*budget.waiting);
    budget.waiting.reset();
    offer(accountID, std::move(message));
}

void NotificationRelay::post(const std::string& accountID, const Message& message) {
    AccountStore* store = m_manager.store();
    if (!store || !m_manager.showsNotifications(accountID) || !m_manager.webView(accountID))
        return;
    WebHost& host = m_manager.host();
    const Account* account = store->account(accountID);
    Content shown = content(message, accountID, account ? account->label : std::string(),
        host.notificationBodyIsMarkup());

    auto notification = adopt(g_notification_new(shown.title.c_str()));
    if (shown.body)
        g_notification_set_body(notification.get(), shown.body->c_str());
    std::string action = std::string("app.") + kClickAction;
    g_notification_set_default_action_and_target_value(notification.get(), action.c_str(),
        g_variant_new("(ss)", accountID.c_str(), message.id.c_str()));
    host.sendNotification(shown.id, notification.get());
}

void NotificationRelay::clicked(const std::string& account, const std::string& notif) {
    auto accountID = canonicalUUID(account);
    if (!accountID)
        return;
    if (AccountStore* store = m_manager.store()) {
        store->setSelectedAccountID(*accountID);
        store->save();
    }
    if (notif.empty() || !g_utf8_validate(notif.c_str(), -1, nullptr)
        || g_utf8_strlen(notif.c_str(), -1) > long(kMaxIDChars))
        return;
    WebKitWebView* view = m_manager.webView(*accountID);
    if (!view)
        return;
    // The id goes in as a JSON literal, never as raw text.
    std::string script = "window.__orvaneClickNotif && window.__orvaneClickNotif(" + jsonLiteral(notif) + ")";
    webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr,
        nullptr, nullptr, nullptr);
}

} // namespace orvane
