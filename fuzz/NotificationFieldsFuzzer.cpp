// The notification messages pages post, given as JSON: the members that are
// texts go to NotificationFields, as the relay hands them over.

#include "FuzzCheck.h"
#include "NotificationFields.h"

#include <nlohmann/json.hpp>

using orvane::NotificationFields;

namespace {

std::optional<std::string> textMember(const nlohmann::json& object, const char* name) {
    auto it = object.find(name);
    if (it == object.end() || !it->is_string())
        return std::nullopt;
    return it->get<std::string>();
}

// Valid UTF-8, at most maxChars characters, no control characters but the
// line breaks allowed.
bool isPlain(const std::string& text, size_t maxChars, bool newlines) {
    if (!orvane::fuzz::isValidUTF8(text) || g_utf8_strlen(text.c_str(), -1) > long(maxChars))
        return false;
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
        gunichar c = g_utf8_get_char(p);
        if (g_unichar_iscntrl(c) && !(newlines && c == '\n'))
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto message = nlohmann::json::parse(orvane::fuzz::text(data, size), nullptr, /*allow_exceptions*/ false);
    if (!message.is_object())
        return 0;
    NotificationFields::Members members { textMember(message, "id"), textMember(message, "title"),
        textMember(message, "body"), textMember(message, "tag") };
    auto fields = NotificationFields::from(members);
    if (!fields) {
        FUZZ_CHECK(!members.id || members.id->find('\0') != std::string::npos
            || !orvane::fuzz::isValidUTF8(*members.id)
            || g_utf8_strlen(members.id->c_str(), -1) > long(NotificationFields::kMaxIDChars));
        return 0;
    }
    FUZZ_CHECK(fields->id == *members.id);
    FUZZ_CHECK(isPlain(fields->title, NotificationFields::kMaxTitleChars, false));
    FUZZ_CHECK(isPlain(fields->body, NotificationFields::kMaxBodyChars, true));
    FUZZ_CHECK(isPlain(fields->tag, NotificationFields::kMaxTagChars, false));
    FUZZ_CHECK(NotificationFields::trimmed(fields->title) == fields->title);

    // Plain fields stay as they are when handed over again.
    auto again = NotificationFields::from({ fields->id, fields->title, fields->body, fields->tag });
    FUZZ_CHECK(again == fields);
    return 0;
}
