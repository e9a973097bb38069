// A mailbox's unread feed as a server sends it, then the bytes and their
// second half as two fetch rounds of one sleep.

#include "AtomFeed.h"
#include "FeedNews.h"
#include "FuzzCheck.h"
#include "NotificationFields.h"

#include <glib.h>

#include <algorithm>

using orvane::AtomFeed;
using orvane::FeedNews;

namespace {

// One line within its bound that the plain-text rule leaves as it is, no space at either end.
bool isPlainLine(const std::string& text, size_t maxChars) {
    return orvane::NotificationFields::plainText(text, maxChars, false) == text
        && (text.empty() || (text.front() != ' ' && text.back() != ' '));
}

bool holds(const std::optional<AtomFeed>& feed, const std::string& id) {
    return feed && std::ranges::any_of(feed->entries, [&](const auto& entry) { return entry.id == id; });
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

    // The baseline notifies nothing; later, only what it has not seen, newest first.
    auto later = AtomFeed::parse(bytes.substr(size / 2));
    FeedNews news(std::nullopt, FeedNews::Inbox::Plain);
    FUZZ_CHECK(news.read({ feed, std::nullopt, false }).fresh.empty());
    auto fresh = news.read({ later, std::nullopt, false }).fresh;
    FUZZ_CHECK(fresh.size() <= FeedNews::kMaxNotified);
    for (size_t i = 0; i < fresh.size(); ++i)
        FUZZ_CHECK(holds(later, fresh[i].id) && !holds(feed, fresh[i].id) && (i == 0 || fresh[i - 1].time() >= fresh[i].time()));
    return 0;
}
