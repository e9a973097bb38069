#include "Text.h"

namespace orvane::Text {

namespace {

// The character starting at `at` and its length in bytes; nothing (length 0)
// where the bytes there are not valid UTF-8.
gunichar characterAt(std::string_view text, size_t at, size_t& length) {
    gunichar c = g_utf8_get_char_validated(text.data() + at, static_cast<gssize>(text.size() - at));
    if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) {
        length = 0;
        return 0;
    }
    length = static_cast<size_t>(g_utf8_skip[static_cast<unsigned char>(text[at])]);
    return c;
}

} // namespace

bool isSpaceOrTab(gunichar c) { return c == ' ' || c == '\t'; }

bool isASCIISpace(gunichar c) { return c < 0x80 && g_ascii_isspace(static_cast<char>(c)); }

std::string_view trimmedEnd(std::string_view text, CharacterTest drop) {
    size_t end = text.size();
    while (end > 0) {
        // The last character starts at most four bytes back.
        size_t start = end - 1;
        while (start > 0 && end - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80)
            --start;
        size_t length = 0;
        gunichar c = characterAt(text.substr(0, end), start, length);
        if (length != end - start || !drop(c))
            break;
        end = start;
    }
    return text.substr(0, end);
}

std::string_view trimmed(std::string_view text, CharacterTest drop) {
    size_t begin = 0;
    while (begin < text.size()) {
        size_t length = 0;
        gunichar c = characterAt(text, begin, length);
        if (length == 0 || !drop(c))
            break;
        begin += length;
    }
    return trimmedEnd(text.substr(begin), drop);
}

} // namespace orvane::Text
