#pragma once

#include <string>

namespace orvane {

// Whether Orvane is the desktop's handler of mailto: links, and the request
// to make it so, through GIO's default-application registry (mimeapps.list,
// the same file xdg-mime and the desktop's default-apps settings write).
namespace DefaultMailClient {

// "app.orvane.Orvane.desktop".
std::string desktopID();

// The current handler of "mailto" is Orvane's desktop file, compared by id
// without regard to letter case.
bool isDefault();

// Asks GIO to make Orvane's desktop file the default for
// x-scheme-handler/mailto; true when the request was accepted. False without
// asking when the desktop file is not installed.
bool makeDefault();

} // namespace DefaultMailClient

} // namespace orvane
