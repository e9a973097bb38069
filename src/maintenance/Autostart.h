#pragma once

#include <optional>
#include <string>

namespace orvane::Autostart {

// "Start at login, in the background" outside a sandbox: an XDG autostart
// entry, $XDG_CONFIG_HOME/autostart/app.orvane.Orvane.desktop, that runs this
// executable with --background. Inside a sandbox the Background portal makes
// the entry instead (BackgroundPortal).

std::string entryPath();

// The entry's text for this executable, its path quoted as desktop entries
// quote arguments; nothing for a path that is not absolute or holds control
// characters.
std::optional<std::string> entryText(const std::string& executable);

// Writes the entry (replacing it atomically). False when it could not be.
bool enable(const std::string& executable);
// Removes the entry when it is a regular file. False when one is left.
bool disable();

// The running program's own file, absolute.
std::string currentExecutable();
// True inside a Flatpak sandbox.
bool isSandboxed();

inline constexpr const char* kBackgroundOption = "background";

} // namespace orvane::Autostart
