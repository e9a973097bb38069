#pragma once

#include <optional>
#include <string>

namespace orvane::TrustedFolder {

// Why code must not be loaded from this folder, or nothing when it may. Only
// this user and root may be able to change what it holds: the folder and
// every folder above it must belong to one of them and be writable by nobody
// else (a folder above it that others may write to is fine when its sticky
// bit keeps them from renaming what is not theirs, as /tmp's does), and every
// entry in it must be a regular file or folder of theirs that nobody else may
// write to. Symbolic links on the way are resolved first; one inside is
// refused.
std::optional<std::string> problem(const std::string& path);

} // namespace orvane::TrustedFolder
