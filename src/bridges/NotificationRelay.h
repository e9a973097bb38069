#pragma once

#include "NotificationFields.h"
#include "WebHost.h"

#include <glib.h>
#include <jsc/jsc.h>
#include <webkit/webkit.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace orvane {

class WebViewManager;

// Shows the notifications that account pages create as desktop
// notifications, and brings a click on one back to the page.
//
// The pages' Notification is notification-shim.js, which posts
// {id, title, body, tag, orvanePage} to orvaneNotify for every notification.
// The relay takes those messages from the account main views only (a pop-up's
// notification is dropped), while the store's notificationsEnabled is on and
// the account is not muted (WebViewManager::showsNotifications), and
// sends a GNotification through the application: titled with the page's
// title (or the account's label when the page gave none), the label as the
// body's first line when the page's title is shown, and the default action
// app.notification-clicked with the target (account id, page-side id). A
// notification with a tag replaces the account's earlier one with that tag.
//
// The app shell owns the action: it brings the main window forward and calls
// clicked(), which selects the account, saves, and calls the page's
// window.__orvaneClickNotif(id) in the account's existing main view.
//
// One per manager, owned by it. Main thread only.
class NotificationRelay {
public:
    // What the shim posted, after validation.
    using Message = NotificationFields;

    // What one desktop notification shows.
    struct Content {
        std::string id;    // "orvane-<account>-<tag>", or a random upper-case UUID
        std::string title;
        std::optional<std::string> body;
    };

    // Receives orvaneNotify for the manager's views from now on.
    explicit NotificationRelay(WebViewManager& manager);
    ~NotificationRelay();
    NotificationRelay(const NotificationRelay&) = delete;
    NotificationRelay& operator=(const NotificationRelay&) = delete;

    // A script message posted to orvaneNotify; `sender` is the exact view
    // whose page posted it, or null when that cannot be told.
    void receive(WebKitWebView* sender, JSCValue* body);

    // A click on one of Orvane's notifications, with the action's target. The
    // caller has already brought the main window forward.
    void clicked(const std::string& account, const std::string& notif);

    // The message a page posted, or nothing when it is malformed: not an
    // object, no "id" or an "id" that is not a text. Other members that are
    // not texts count as empty; every text is bounded and made plain.
    static std::optional<Message> parse(JSCValue* body);

    // The desktop notification for a message from an account with this
    // label. `markupBody` escapes the body for servers that read markup in it.
    static Content content(const Message& message, const std::string& accountID, const std::string& label,
        bool markupBody);

    // app.notification-clicked, target (account, notif).
    static constexpr const char* kClickAction = WebHost::kNotificationClickAction;
    static constexpr const char* kClickActionTarget = "(ss)";

    // Bounds on what a page hands over, in characters.
    static constexpr size_t kMaxTitleChars = NotificationFields::kMaxTitleChars;
    static constexpr size_t kMaxBodyChars = NotificationFields::kMaxBodyChars;
    static constexpr size_t kMaxTagChars = NotificationFields::kMaxTagChars;
    static constexpr size_t kMaxIDChars = NotificationFields::kMaxIDChars;

    // Each account may show kBurst notifications at once, then one more
    // every kRefillMs. What comes faster is folded into one waiting
    // notification (the latest), shown when the next one is allowed.
    static constexpr int kBurst = 10;
    static constexpr guint kRefillMs = 1000;

private:
    struct Budget {
        double tokens = kBurst;
        int64_t updatedAt = 0; // monotonic microseconds
        std::optional<Message> waiting;
        guint timer = 0;
    };
    struct TimerData;

    void offer(const std::string& accountID, Message message);
    void refill(Budget& budget) const;
    void postWaiting(const std::string& accountID);
    void post(const std::string& accountID, const Message& message);

    // Borrowed references
    WebViewManager& m_manager; // owns this

    // Owned state
    std::map<std::string, Budget> m_budgets; // by account id
};

} // namespace orvane
