#include "FileNames.h"

#include "GRef.h"
#include "Text.h"

#include <glib.h>

namespace orvane::FileNames {

namespace {

// Extensions longer than this are not worth keeping whole when a name must
// be shortened: such a "extension" is most of the name.
constexpr size_t kMaxKeptExtensionBytes = 32;

bool isRemoved(gunichar c) {
    return c < 0x20 || c == 0x7f || (c >= 0x80 && c <= 0x9f) // C0, DEL, C1 controls
        || (c >= 0x202a && c <= 0x202e)                       // embeddings and overrides
        || (c >= 0x2066 && c <= 0x2069)                       // isolates
        || c == 0x200e || c == 0x200f || c == 0x061c;         // direction marks
}

bool isSpace(gunichar c) { return g_unichar_isspace(c) || c == 0x3000 || c == 0x00a0; }

bool isSpaceOrDot(gunichar c) { return c == '.' || isSpace(c); }

// Drops trailing spaces and dots only (a shortened base must not end in them).
std::string trimmedEnd(const std::string& text) {
    return std::string(Text::trimmedEnd(text, isSpaceOrDot));
}

// Drops spaces and dots from the front and from the back.
std::string trimmed(const std::string& text) {
    return std::string(Text::trimmed(text, isSpaceOrDot));
}

} // namespace

bool isPlainName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxNameBytes && name != "." && name != ".."
        && name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string truncatedUTF8(std::string_view text, size_t maxBytes) {
    if (text.size() <= maxBytes)
        return std::string(text);
    size_t cut = maxBytes;
    // Step back over continuation bytes (10xxxxxx) to a character start.
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xc0) == 0x80)
        --cut;
    return std::string(text.substr(0, cut));
}

Parts split(std::string_view name) {
    size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size())
        return { std::string(name), {} };
    return { std::string(name.substr(0, dot)), std::string(name.substr(dot + 1)) };
}

std::string sanitized(std::string_view name, std::string_view fallback, size_t maxBytes) {
    // Invalid bytes (and NULs) become U+FFFD, so what follows walks valid UTF-8.
    GCharPtr valid(g_utf8_make_valid(name.data(), static_cast<gssize>(name.size())));
    std::string text = valid ? valid.get() : "";
    if (auto separator = text.find_last_of("/\\"); separator != std::string::npos)
        text.erase(0, separator + 1);

    std::string clean;
    clean.reserve(text.size());
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
        if (!isRemoved(g_utf8_get_char(p)))
            clean.append(p, static_cast<size_t>(g_utf8_next_char(p) - p));
    }
    clean = trimmed(clean);
    if (clean.empty())
        return std::string(fallback);
    if (clean.size() <= maxBytes)
        return clean;

    Parts parts = split(clean);
    if (!parts.extension.empty() && parts.extension.size() <= kMaxKeptExtensionBytes
        && parts.extension.size() + 2 <= maxBytes) {
        std::string base = trimmedEnd(truncatedUTF8(parts.base, maxBytes - parts.extension.size() - 1));
        if (!base.empty())
            return base + "." + parts.extension;
    }
    std::string whole = trimmedEnd(truncatedUTF8(clean, maxBytes));
    return whole.empty() ? std::string(fallback) : whole;
}

std::string numbered(const Parts& parts, unsigned n, size_t maxBytes) {
    std::string number = " " + std::to_string(n);
    std::string tail = number;
    std::string base = parts.base;
    if (!parts.extension.empty()) {
        if (parts.extension.size() <= kMaxKeptExtensionBytes)
            tail += "." + parts.extension;
        else
            base += "." + parts.extension; // too long to keep: numbered as a whole
    }
    size_t room = maxBytes > tail.size() ? maxBytes - tail.size() : 0;
    return truncatedUTF8(base, room) + tail;
}

} // namespace orvane::FileNames
