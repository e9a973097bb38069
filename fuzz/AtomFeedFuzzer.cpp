// A mailbox's unread feed as a server sends it, then the same bytes cut in
// two as two fetch rounds of one sleep.

#include "AtomFeed.h"
#include "FeedNews.h"
#include "FuzzCheck.h"

#include <glib.h>

#include <algorithm>

using orvane::AtomFeed;
using orvane::FeedNews;

namespace {

// One line of valid UTF-8 within its bound, with no control characters and
// no space at either end.
bool isPlainLine(const std::string& text, size_t maxChars) {
    if (!g_utf8_validate(text.data(), gssize(text.size()), nullptr) || g_utf8_strlen(text.c_str(), -1) > long(maxChars))
        return false;
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
        if (g_unichar_iscntrl(g_utf8_get_char(p)))
            return false;
    }
    return text.empty() || (text.front() != ' ' && text.back() != ' ');
}

bool contains(const std::optional<AtomFeed>& feed, const std::string& id) {
    return feed && std::ranges::any_of(feed->entries, [&](const auto& entry) { return entry.id == id; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes = orvane::fuzz::text(data, size);
    auto feed = AtomFeed::parse(bytes);
    if (feed) {
        FUZZ_CHECK(feed->fullcount >= 0 && feed->fullcount <= AtomFeed::kMaxCount);
        FUZZ_CHECK(feed->entries.size() <= AtomFeed::kMaxEntries);
        for (const auto& entry : feed->entries) {
            FUZZ_CHECK(!entry.id.empty() && entry.id.size() <= AtomFeed::kMaxIDBytes);
            FUZZ_CHECK(isPlainLine(entry.subject, AtomFeed::kMaxSubjectChars));
            FUZZ_CHECK(isPlainLine(entry.authorName, AtomFeed::kMaxNameChars));
            FUZZ_CHECK(isPlainLine(entry.summary, AtomFeed::kMaxSummaryChars));
            FUZZ_CHECK(entry.authorEmail.size() <= AtomFeed::kMaxEmailBytes
                && entry.authorEmail.find_first_of(" \n<>") == std::string::npos);
            FUZZ_CHECK(entry.link.empty() || !g_ascii_strncasecmp(entry.link.c_str(), "http://", 7)
                || !g_ascii_strncasecmp(entry.link.c_str(), "https://", 8));
            FUZZ_CHECK(entry.issued >= 0 && entry.modified >= 0);
        }
    }

    // The baseline notifies nothing; later, only what it has not seen.
    auto later = AtomFeed::parse(bytes.substr(size / 2));
    FeedNews news(std::nullopt, FeedNews::Inbox::Plain);
    FUZZ_CHECK(news.read({ feed, std::nullopt, false }).fresh.empty());
    auto fresh = news.read({ later, std::nullopt, false }).fresh;
    FUZZ_CHECK(fresh.size() <= FeedNews::kMaxNotified);
    for (size_t i = 0; i < fresh.size(); ++i) {
        FUZZ_CHECK(contains(later, fresh[i].id) && !contains(feed, fresh[i].id));
        FUZZ_CHECK(i == 0 || fresh[i - 1].time() >= fresh[i].time());
    }
    return 0;
}
