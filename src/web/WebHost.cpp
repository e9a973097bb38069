#include "WebHost.h"

namespace orvane {

void PlainWebHost::openInBrowser(const std::string& address, WebKitWebView*) {
    g_app_info_launch_default_for_uri(address.c_str(), nullptr, nullptr);
}

} // namespace orvane
