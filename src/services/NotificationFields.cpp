#include "NotificationFields.h"

#include "GRef.h"
#include "Text.h"

#include <glib.h>

#include <algorithm>

namespace orvane {

std::string NotificationFields::plainText(std::string raw, size_t maxChars, bool keepNewlines) {
    std::replace(raw.begin(), raw.end(), '\0', ' ');
    GCharPtr valid(g_utf8_make_valid(raw.data(), static_cast<gssize>(raw.size())));
    std::string out;
    size_t chars = 0;
    bool cut = false;
    const char* p = valid.get();
    while (*p) {
        gunichar c = g_utf8_get_char(p);
        const char* next = g_utf8_next_char(p);
        if (chars == maxChars) {
            cut = true;
            break;
        }
        if (c == '\r') {
            if (*next != '\n')
                out += keepNewlines ? '\n' : ' ';
        } else if (c == '\n') {
            out += keepNewlines ? '\n' : ' ';
        } else if (g_unichar_iscntrl(c)) {
            out += ' ';
        } else {
            out.append(p, next);
        }
        if (c != '\r' || *next != '\n')
            ++chars;
        p = next;
    }
    if (cut) {
        // Room for the ellipsis within the bound.
        const char* start = out.c_str();
        const char* last = g_utf8_find_prev_char(start, start + out.size());
        if (last)
            out.resize(size_t(last - start));
        out += "…";
    }
    return out;
}

std::string NotificationFields::trimmed(const std::string& text) {
    return std::string(Text::trimmed(text, [](gunichar c) { return c == ' ' || c == '\t' || c == '\n'; }));
}

std::optional<NotificationFields> NotificationFields::from(const Members& members) {
    const auto& id = members.id;
    if (!id || !g_utf8_validate(id->data(), gssize(id->size()), nullptr)
        || g_utf8_strlen(id->c_str(), -1) > long(kMaxIDChars))
        return std::nullopt;
    NotificationFields fields;
    fields.id = *id;
    fields.title = trimmed(plainText(members.title.value_or(""), kMaxTitleChars, false));
    fields.body = plainText(members.body.value_or(""), kMaxBodyChars, true);
    fields.tag = plainText(members.tag.value_or(""), kMaxTagChars, false);
    return fields;
}

} // namespace orvane
