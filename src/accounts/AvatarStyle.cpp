#include "AvatarStyle.h"

#include "GRef.h"
#include "Text.h"

#include <pango/pango.h>

#include <cmath>
#include <vector>

namespace orvane::AvatarStyle {

// Enough characters for any real first cluster; a label made of thousands of
// combining marks is not analysed whole.
static constexpr glong kMaxAnalysedChars = 64;

double hueForSeed(int64_t colorSeed) {
    int64_t degrees = colorSeed % 360;
    if (degrees < 0)
        degrees += 360;
    return static_cast<double>(degrees) / 360.0;
}

HSV colorForSeed(int64_t colorSeed) {
    return { hueForSeed(colorSeed), 0.5, 0.8 };
}

// Byte length of the first grapheme cluster of valid UTF-8 text.
static size_t firstClusterLength(const std::string& text) {
    glong chars = g_utf8_strlen(text.c_str(), -1);
    std::vector<PangoLogAttr> attrs(chars + 1);
    pango_get_log_attrs(text.c_str(), static_cast<int>(text.size()), -1, pango_language_from_string("en"),
        attrs.data(), static_cast<int>(attrs.size()));
    const char* p = text.c_str();
    for (glong i = 1; i <= chars; ++i) {
        p = g_utf8_next_char(p);
        if (attrs[i].is_cursor_position)
            return static_cast<size_t>(p - text.c_str());
    }
    return text.size();
}

std::string initialForLabel(std::string_view label) {
    GCharPtr valid(g_utf8_make_valid(label.data(), static_cast<gssize>(label.size())));
    std::string_view trimmed = Text::trimmed(valid.get(), Text::isSpaceOrTab);
    if (trimmed.empty())
        return "+";

    const char* start = trimmed.data();
    const char* end = start + trimmed.size();
    const char* cut = start;
    for (glong n = 0; cut < end && n < kMaxAnalysedChars; ++n)
        cut = g_utf8_next_char(cut);
    std::string head(start, std::min(cut, end));

    std::string cluster = head.substr(0, firstClusterLength(head));
    if (cluster.empty() || cluster == "?")
        return "+";
    GCharPtr upper(g_utf8_strup(cluster.c_str(), static_cast<gssize>(cluster.size())));
    return upper.get();
}

std::string unreadText(int64_t unread) {
    if (unread < 1)
        return {};
    if (unread >= 100)
        return "99+";
    return std::to_string(unread);
}

} // namespace orvane::AvatarStyle
