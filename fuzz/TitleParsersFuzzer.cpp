// Page titles, as the providers' pages set them.

#include "FuzzCheck.h"
#include "TitleParsers.h"

namespace TitleParsers = orvane::TitleParsers;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string title(orvane::fuzz::text(data, size));

    if (auto unread = TitleParsers::gmailInboxUnread(title)) {
        FUZZ_CHECK(*unread >= 0);
        FUZZ_CHECK(orvane::fuzz::isValidUTF8(title));
    }

    if (auto email = TitleParsers::gmailEmail(title)) {
        FUZZ_CHECK(!email->empty() && email->front() != '@');
        FUZZ_CHECK(email->find('@') != std::string::npos && email->find('.') != std::string::npos);
        FUZZ_CHECK(title.find(*email) != std::string::npos);
        for (const char* separator : { " ", ",", ";", "\u2013", "\u2014", "|" })
            FUZZ_CHECK(email->find(separator) == std::string::npos);
    }

    if (auto name = TitleParsers::outlookName(title)) {
        FUZZ_CHECK(!name->empty() && title.find(*name) != std::string::npos);
        FUZZ_CHECK(orvane::fuzz::isValidUTF8(title));
        FUZZ_CHECK(name->find(" - ") == std::string::npos);
        for (char edge : { name->front(), name->back() })
            FUZZ_CHECK(edge != ' ' && edge != '\t');
    }
    return 0;
}
