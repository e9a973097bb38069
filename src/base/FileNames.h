#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvane::FileNames {

// The longest file name Linux file systems take, in bytes.
constexpr size_t kMaxNameBytes = 255;

// A name that came from a page or a server, made safe to use as one file name
// directly inside a folder: only what follows the last "/" or "\" is kept;
// control characters and bidirectional controls are removed; surrounding
// spaces, leading dots (no hidden files, no "." or "..") and trailing dots
// go; invalid UTF-8 is repaired; the result is cut to maxBytes, keeping the
// extension. An empty result gives `fallback`.
std::string sanitized(std::string_view name, std::string_view fallback, size_t maxBytes = kMaxNameBytes);

// A name split at its last dot: "archive.tar.gz" is "archive.tar" and "gz";
// a name without a dot (or only a leading one) has an empty extension.
struct Parts {
    std::string base;
    std::string extension; // without the dot
};
Parts split(std::string_view name);

// The n-th name to try for a name already taken: "report 1.pdf", "notes 2"
// (n from 1), with the base shortened, never the number or the extension,
// so that the whole stays within maxBytes.
std::string numbered(const Parts& parts, unsigned n, size_t maxBytes = kMaxNameBytes);

// A name read from a file that may be joined to a folder as it is: one plain
// component (not empty, not "." or "..", no "/" and no NUL) of at most
// kMaxNameBytes.
bool isPlainName(std::string_view name);

// The longest prefix of `text` of at most maxBytes that does not split a
// UTF-8 character.
std::string truncatedUTF8(std::string_view text, size_t maxBytes);

} // namespace orvane::FileNames
