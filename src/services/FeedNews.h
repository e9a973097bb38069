#pragma once

#include "AtomFeed.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// What a sleeping Gmail account's feeds mean: which feeds to read, the count
// its tile shows and the messages worth a notification. Pure; one per
// sleep, fed every fetch round (web/FeedWatcher).
//
// A mailbox with inbox categories counts (and notifies) only its Primary tab,
// whose feed is the plain feed's address + "/^sq_ig_i_personal"; a mailbox
// without them, its whole inbox. The feeds do not say which kind a mailbox is,
// so the first round reads both and compares them with the count the page
// showed before it slept: equal to the Primary count only → categories; equal
// to the whole inbox's only → none; a Primary feed that the server refuses →
// none. Anything else leaves it unknown for this sleep: the whole inbox is
// counted, and only Primary messages (which are inbox messages either way)
// are notified.
//
// The first round sets the baseline and notifies nothing. Later rounds notify
// the messages not seen before in this sleep, newest first, at most
// kMaxNotified, and none older than kLateSlackSeconds before the newest
// message already seen (an old unread one sliding into the feed's window as a
// newer one is read elsewhere is no news).
class FeedNews {
public:
    enum class Inbox { Unknown, Plain, Categories };

    // What one fetch round brought.
    struct Reading {
        std::optional<AtomFeed> inbox;   // the plain feed, when asked for and read
        std::optional<AtomFeed> primary; // the Primary feed, when asked for and read
        bool primaryRefused = false;     // answered with an error status or not a feed
    };
    struct News {
        std::optional<int64_t> count;       // nothing: the round told nothing, keep the last
        std::vector<AtomFeed::Entry> fresh; // newest first
    };

    // `pageCount` is the count the account's page showed last; `inbox` what
    // an earlier sleep of the account found out.
    explicit FeedNews(std::optional<int64_t> pageCount = std::nullopt, Inbox inbox = Inbox::Unknown)
        : m_pageCount(pageCount), m_inbox(inbox) { }

    Inbox inbox() const { return m_inbox; }
    bool needsInboxFeed() const { return m_inbox != Inbox::Categories; }
    bool needsPrimaryFeed() const { return m_inbox != Inbox::Plain; }

    News read(const Reading& reading);

    // The Primary category's feed beside the plain feed at this address.
    static std::string primaryFeedAddress(std::string_view feedAddress);
    // Gmail numbers the accounts signed in to one session (/mail/u/<n>/) and
    // the built-in feed names the first: the feed of the mailbox the page
    // showed last, when its address is on the feed's host under another number.
    static std::string mailboxFeedAddress(const std::string& feedAddress, const std::string& pageAddress);

    static constexpr size_t kMaxNotified = 3;
    static constexpr size_t kMaxRemembered = 500;
    static constexpr int64_t kLateSlackSeconds = 600;

private:
    void decide(const Reading& reading);
    std::vector<AtomFeed::Entry> fresh(const std::vector<AtomFeed::Entry>& entries);
    void remember(const std::string& id);

    // Owned state
    std::optional<int64_t> m_pageCount;
    Inbox m_inbox;
    bool m_hasBaseline = false;
    int64_t m_newest = 0; // seconds since 1970 of the newest message seen
    std::deque<std::string> m_seenOrder; // oldest first, at most kMaxRemembered
    std::set<std::string> m_seen;
};

} // namespace orvane
