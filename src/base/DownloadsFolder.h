#pragma once

#include <optional>
#include <string>

namespace orvane::DownloadsFolder {

// The user's Downloads folder: GLib's G_USER_DIRECTORY_DOWNLOAD (XDG_DOWNLOAD_DIR
// of $XDG_CONFIG_HOME/user-dirs.dirs, read anew on every call), else
// $HOME/Downloads. A folder that does
// not exist yet is created (0700, with its parents). Nothing when the path
// is not a folder and cannot be made one: callers then refuse to save.
std::optional<std::string> path();

// Only the lookup, without creating anything.
std::string configuredPath();

} // namespace orvane::DownloadsFolder
