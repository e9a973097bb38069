// A mailbox's unread feed as a server sends it.

#include "AtomFeed.h"
#include "FuzzCheck.h"
#include "NotificationFields.h"

using orvane::AtomFeed;

namespace {

// One line within its bound that the plain-text rule leaves as it is, no space at either end.
bool isPlainLine(const std::string& text, size_t maxChars) {
    return orvane::NotificationFields::plainText(text, maxChars, false) == text
        && (text.empty() || (text.front() != ' ' && text.back() != ' '));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes = orvane::fuzz::text(data, size);
    auto feed = AtomFeed::parse(bytes);
    for (const auto& entry : feed ? feed->entries : std::vector<AtomFeed::Entry>()) {
        FUZZ_CHECK(!entry.id.empty() && entry.id.size() <= AtomFeed::kMaxIDBytes && entry.time() >= 0);
        FUZZ_CHECK(isPlainLine(entry.subject, AtomFeed::kMaxSubjectChars) && isPlainLine(entry.summary, AtomFeed::kMaxSummaryChars)
            && isPlainLine(entry.authorName, AtomFeed::kMaxNameChars));
        FUZZ_CHECK(entry.authorEmail.size() <= AtomFeed::kMaxEmailBytes && entry.authorEmail.find_first_of(" <>") == std::string::npos);
        FUZZ_CHECK(entry.link.empty() || !g_ascii_strncasecmp(entry.link.c_str(), "http://", 7)
            || !g_ascii_strncasecmp(entry.link.c_str(), "https://", 8));
    }
    FUZZ_CHECK(!feed || (feed->fullcount >= 0 && feed->fullcount <= AtomFeed::kMaxCount && feed->entries.size() <= AtomFeed::kMaxEntries));
    return 0;
}
