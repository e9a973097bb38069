#pragma once

#include "SessionPreferences.h"
#include "ViewExtension.h"

namespace orvane {

// What every account view gets from the application's settings when it is
// made: the account's kept zoom, and the back and forward swipes of a
// touchpad or touchscreen (pop-ups get the swipes too).
class PageViewSettings final : public ViewExtension {
public:
    // The preferences outlive the manager that owns this extension.
    explicit PageViewSettings(const SessionPreferences& preferences) : m_preferences(preferences) { }

    void viewCreated(WebKitWebView* view, const Account& account, const MailService&) override;
    void popupOpened(WebKitWebView* popup, WebKitWebView*, const Account&, const MailService&) override;

private:
    // Borrowed references
    const SessionPreferences& m_preferences;
};

} // namespace orvane
