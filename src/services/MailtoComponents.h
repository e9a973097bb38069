#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// A parsed mailto: link: what the link asks the compose form to hold.
struct MailtoComponents {
    std::vector<std::string> to;
    std::vector<std::string> cc;
    std::vector<std::string> bcc;
    std::optional<std::string> subject;
    std::optional<std::string> body;

    bool operator==(const MailtoComponents&) const = default;

    // Nothing when the URL is not a mailto: link (any letter case); a mail
    // link that cannot be taken apart gives the empty value.
    static std::optional<MailtoComponents> fromURL(std::string_view url);
};

} // namespace orvane
