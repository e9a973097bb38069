#include "TitleParsers.h"

#include "GRef.h"
#include "Text.h"

#include <glib.h>

#include <charconv>
#include <cstring>
#include <vector>

namespace orvane::TitleParsers {

namespace {

// Spaces and tabs only; line breaks stay.
std::string trimSpacesAndTabs(const std::string& text) {
    return std::string(Text::trimmed(text, Text::isSpaceOrTab));
}

bool isNumericCharacter(gunichar c) {
    switch (g_unichar_type(c)) {
    case G_UNICODE_DECIMAL_NUMBER:
    case G_UNICODE_LETTER_NUMBER:
    case G_UNICODE_OTHER_NUMBER:
        return true;
    default:
        return false;
    }
}

} // namespace

std::optional<int64_t> gmailInboxUnread(const std::optional<std::string>& title) {
    if (!title)
        return std::nullopt;
    const std::string& t = *title;
    if (!g_utf8_validate(t.data(), static_cast<gssize>(t.size()), nullptr))
        return std::nullopt;
    GCharPtr lower(g_utf8_strdown(t.data(), static_cast<gssize>(t.size())));
    if (!g_str_has_prefix(lower.get(), "inbox"))
        return std::nullopt;

    size_t open = t.find('(');
    if (open == std::string::npos)
        return 0;
    size_t close = t.find(')');
    if (close == std::string::npos || close < open)
        return 0;

    // Keep every numeric character, whatever its script; the ASCII parse below
    // then refuses anything that is not a plain digit.
    std::string kept;
    const char* p = t.data() + open + 1;
    const char* end = t.data() + close;
    while (p < end) {
        gunichar c = g_utf8_get_char(p);
        const char* next = g_utf8_next_char(p);
        if (isNumericCharacter(c))
            kept.append(p, static_cast<size_t>(next - p));
        p = next;
    }
    if (kept.empty())
        return 0;
    int64_t value = 0;
    auto [last, error] = std::from_chars(kept.data(), kept.data() + kept.size(), value, 10);
    if (error != std::errc() || last != kept.data() + kept.size())
        return 0;
    return value;
}

std::optional<std::string> gmailEmail(const std::optional<std::string>& title) {
    if (!title)
        return std::nullopt;
    static const char* const separators[] = { " ", ",", ";", "\u2013", "\u2014", "|" };
    const std::string& t = *title;
    size_t start = 0;
    size_t i = 0;
    auto consider = [&](size_t pieceEnd) -> std::optional<std::string> {
        std::string piece = t.substr(start, pieceEnd - start);
        if (piece.find('@') != std::string::npos && piece.find('.') != std::string::npos && piece[0] != '@')
            return piece;
        return std::nullopt;
    };
    while (i < t.size()) {
        size_t matched = 0;
        for (const char* sep : separators) {
            size_t len = strlen(sep);
            if (t.compare(i, len, sep) == 0) {
                matched = len;
                break;
            }
        }
        if (matched) {
            if (auto found = consider(i))
                return found;
            i += matched;
            start = i;
        } else {
            ++i;
        }
    }
    return consider(t.size());
}

std::optional<std::string> outlookName(const std::optional<std::string>& title) {
    if (!title)
        return std::nullopt;
    std::vector<std::string> pieces;
    const std::string& t = *title;
    if (!g_utf8_validate(t.data(), static_cast<gssize>(t.size()), nullptr))
        return std::nullopt;
    size_t start = 0;
    for (;;) {
        size_t at = t.find(" - ", start);
        if (at == std::string::npos) {
            pieces.push_back(trimSpacesAndTabs(t.substr(start)));
            break;
        }
        pieces.push_back(trimSpacesAndTabs(t.substr(start, at - start)));
        start = at + 3;
    }
    if (pieces.size() < 3)
        return std::nullopt;
    const std::string& last = pieces.back();
    GCharPtr lower(g_utf8_strdown(last.c_str(), -1));
    if (!lower || std::string(lower.get()) != "outlook")
        return std::nullopt;
    const std::string& name = pieces[pieces.size() - 2];
    if (name.empty())
        return std::nullopt;
    return name;
}

} // namespace orvane::TitleParsers
