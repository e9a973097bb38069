#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace orvane::Files {

// Reads a whole regular file of at most maxBytes. Anything else (missing,
// unreadable, not a regular file, too large) gives nothing.
std::optional<std::string> read(const std::string& path, size_t maxBytes);

// Replaces the file's content atomically: the bytes go to a temporary file in
// the same folder, are flushed to disk and renamed over the old file, so a
// crash leaves either the old or the new content. False on failure.
bool replaceAtomically(const std::string& path, const std::string& bytes);

// Removes the temporary files that replaceAtomically leaves beside the file
// when the process dies mid-write (the file's name, a dot and six letters or
// digits). Only regular files are removed; call it when nothing else writes.
void removeLeftoverTemporaries(const std::string& path);

// Creates the folder and its missing parents (0700). False on failure.
bool makeFolder(const std::string& path);

// Removes a file or a whole folder tree without following symbolic links.
// Missing paths are fine. False when something could not be removed.
bool removeTree(const std::string& path);

bool exists(const std::string& path);

} // namespace orvane::Files
