#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// A Gmail mailbox's unread feed (https://mail.google.com/mail/u/0/feed/atom):
// an Atom 0.3 document whose <fullcount> is the mailbox's unread count and
// whose <entry>s are the newest unread messages, newest first. It comes from
// the network, so every field is bounded and made plain, and any document
// that is not such a feed reads as nothing.
struct AtomFeed {
    struct Entry {
        std::string id;          // <id>, never empty
        std::string subject;     // <title>, one plain line
        std::string authorName;  // <author><name>, one plain line
        std::string authorEmail; // <author><email> when it looks like one, else empty
        std::string summary;     // <summary>, one plain line
        int64_t issued = 0;      // <issued> in seconds since 1970; 0 when absent or unreadable
        int64_t modified = 0;    // <modified>, the same way
        std::string link;        // <link href> when it is an http(s) address, else empty

        // The newer of issued and modified: when the message arrived, as far
        // as the feed says (0 when it says nothing).
        int64_t time() const { return issued > modified ? issued : modified; }
        bool operator==(const Entry&) const = default;
    };

    int64_t fullcount = 0;
    std::vector<Entry> entries; // in the feed's order, at most kMaxEntries

    // Nothing unless the bytes are a well-formed <feed> in the Atom 0.3 or
    // 1.0 namespace with a <fullcount> between 0 and kMaxCount, at most
    // kMaxFeedBytes long and without a document type declaration. Entries
    // without an id, or with one longer than kMaxIDBytes, are left out.
    static std::optional<AtomFeed> parse(std::string_view bytes);

    static constexpr size_t kMaxFeedBytes = 1024 * 1024;
    static constexpr size_t kMaxEntries = 50;
    static constexpr int64_t kMaxCount = 999999999;
    static constexpr size_t kMaxIDBytes = 256;
    static constexpr size_t kMaxSubjectChars = 200;
    static constexpr size_t kMaxNameChars = 100;
    static constexpr size_t kMaxEmailBytes = 254;
    static constexpr size_t kMaxSummaryChars = 300;
    static constexpr size_t kMaxLinkBytes = 2048;
};

} // namespace orvane
