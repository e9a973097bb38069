// mailto: links from pages, the desktop and the command line.

#include "FuzzCheck.h"
#include "MailtoComponents.h"

namespace {

bool isAddressPiece(const std::string& piece) {
    return !piece.empty() && piece.front() != ' ' && piece.front() != '\t' && piece.back() != ' '
        && piece.back() != '\t' && piece.find(',') == std::string::npos;
}

bool isCleanText(const std::string& text) {
    return text.find('\0') == std::string::npos && orvane::fuzz::isValidUTF8(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using orvane::MailtoComponents;
    std::string_view url = orvane::fuzz::text(data, size);
    auto components = MailtoComponents::fromURL(url);

    std::string head(url.substr(0, 7));
    bool isMailto = g_ascii_strcasecmp(head.c_str(), "mailto:") == 0;
    FUZZ_CHECK(components.has_value() == isMailto);
    if (!components)
        return 0;

    for (const auto* list : { &components->to, &components->cc, &components->bcc }) {
        for (const auto& address : *list)
            FUZZ_CHECK(isAddressPiece(address) && isCleanText(address));
    }
    FUZZ_CHECK(!components->subject || isCleanText(*components->subject));
    FUZZ_CHECK(!components->body || isCleanText(*components->body));

    // The scheme's letter case changes nothing.
    std::string upper = "MAILTO:" + std::string(url.substr(7));
    FUZZ_CHECK(MailtoComponents::fromURL(upper) == components);
    return 0;
}
