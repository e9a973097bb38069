#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace orvane {

// The fields of a notification a page posted (notification-shim.js sends
// {id, title, body, tag}), checked and bounded. Pure: the web layer reads the
// members out of the page's message and hands them here.
struct NotificationFields {
    std::string id;
    std::string title;
    std::string body;
    std::string tag;

    bool operator==(const NotificationFields&) const = default;

    // The members of the page's message that are texts; a member that is
    // absent or not a text is nothing.
    struct Members {
        std::optional<std::string> id;
        std::optional<std::string> title;
        std::optional<std::string> body;
        std::optional<std::string> tag;
    };

    // Nothing without an id, or with one that is not valid UTF-8 or is longer
    // than kMaxIDChars. Missing members count as empty; the others are made
    // plain: valid UTF-8 without control characters (the body keeps its line
    // breaks), the title trimmed, each at most its bound in characters, a
    // longer one cut and ended with "…".
    static std::optional<NotificationFields> from(const Members& members);

    // Valid UTF-8 without control characters (line breaks kept when asked,
    // carriage returns folded into them), at most `maxChars` characters.
    static std::string plainText(std::string raw, size_t maxChars, bool keepNewlines);
    // Without spaces, tabs and line breaks at either end.
    static std::string trimmed(const std::string& text);

    // Bounds on what a page hands over, in characters.
    static constexpr size_t kMaxTitleChars = 200;
    static constexpr size_t kMaxBodyChars = 1000;
    static constexpr size_t kMaxTagChars = 100;
    static constexpr size_t kMaxIDChars = 64;
};

} // namespace orvane
