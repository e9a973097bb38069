#include "PageViewSettings.h"

namespace orvane {

static void enableSwipes(WebKitWebView* view) {
    webkit_settings_set_enable_back_forward_navigation_gestures(webkit_web_view_get_settings(view), TRUE);
}

void PageViewSettings::viewCreated(WebKitWebView* view, const Account& account, const MailService&) {
    enableSwipes(view);
    webkit_web_view_set_zoom_level(view, m_preferences.zoom(account.id));
}

void PageViewSettings::popupOpened(WebKitWebView* popup, WebKitWebView*, const Account&, const MailService&) {
    enableSwipes(popup);
}

} // namespace orvane
