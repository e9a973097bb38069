#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::Files {

// Reads a whole regular file of at most maxBytes. Anything else (missing,
// unreadable, not a regular file, too large) gives nothing.
std::optional<std::string> read(const std::string& path, size_t maxBytes);

// Replaces the file's content atomically: the bytes go to a temporary file in
// the same folder, are flushed to disk and renamed over the old file, so a
// crash leaves either the old or the new content. A failure (a full disk, a
// read-only folder, a file-size limit) leaves the old file whole, is logged as
// a warning naming the file, and gives false.
bool replaceAtomically(const std::string& path, const std::string& bytes);

// Moves whatever is at `path` aside to "<path>.<tag>-<UTC time>", such as
// accounts.json.unreadable-20261123T174512Z ("-2", "-3"… added when that name
// is taken), then removes the regular files of that tag beyond the newest
// `keep`, never the one just made. The new path; nothing when nothing was at
// `path` or it could not be moved.
std::optional<std::string> keepAside(const std::string& path, const std::string& tag, size_t keep);

// Removes the temporary files that replaceAtomically leaves beside the file
// when the process dies mid-write (the file's name, a dot and six letters or
// digits). Only regular files are removed; call it when nothing else writes.
void removeLeftoverTemporaries(const std::string& path);

// Creates the folder and its missing parents (0700). False on failure.
bool makeFolder(const std::string& path);

// Removes a file or a whole folder tree without following symbolic links: a
// link in place of the folder is removed, never what it points to. Missing
// paths are fine. False when something could not be removed.
bool removeTree(const std::string& path);

// Unlinks the regular file `name` directly inside `folder`. A name that is not
// one plain component (FileNames::isPlainName), a folder or a symbolic link is
// left alone. False when nothing was removed.
bool removeFile(const std::string& folder, std::string_view name);

bool exists(const std::string& path);

// The names directly inside the folder, in no order; none when it cannot be read.
std::vector<std::string> names(const std::string& folder);

} // namespace orvane::Files
