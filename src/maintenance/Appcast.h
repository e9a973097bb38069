#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// An update feed in the RSS "appcast" format: a channel of <item>s, each a
// release described with elements and enclosure attributes in the namespace
// http://www.andymatuschak.org/xml-namespaces/sparkle. Orvane never installs
// what a feed offers: it only tells the user and opens the release's download
// page, so parsing keeps just what that needs, every field bounded and every
// address checked (http and https only).
class Appcast {
public:
    struct Item {
        std::string version;              // sparkle:version, the one compared
        std::string displayVersion;       // sparkle:shortVersionString, else version
        std::string title;
        std::string minimumSystemVersion; // empty: any system
        std::string downloadURL;          // the item's <link>, else its enclosure
        std::string releaseNotesURL;      // sparkle:releaseNotesLink; may be empty
        std::string descriptionHTML;      // <description>, raw; may be empty
    };

    // Nothing when the bytes are not a well-formed RSS document (or declare a
    // DTD, or are larger than kMaxFeedBytes). Items without a version or
    // without a safe download address are left out, as are items meant for
    // another operating system (enclosure sparkle:os) or another update
    // channel (sparkle:channel).
    static std::optional<Appcast> parse(std::string_view bytes);

    const std::vector<Item>& items() const { return m_items; }

    // The item with the highest version that the given system version may
    // install (no system version: every item), or null.
    const Item* newest(const std::optional<std::string>& systemVersion) const;

    // Compares the way appcasts do: runs of digits as numbers, runs of letters
    // as text, "." and punctuation as separators, so 1.10 > 1.9, 2.0 > 2.0b3
    // and 1.0 > 1.0-beta. Negative, zero or positive.
    static int compareVersions(std::string_view a, std::string_view b);

    // The release notes of <description> as plain text: tags dropped, blocks
    // on lines of their own, at most maxBytes of UTF-8.
    static std::string plainText(std::string_view html, size_t maxBytes = 4000);

    // Whether the text is an absolute http or https address with a host.
    static bool isWebAddress(std::string_view uri);

    static constexpr size_t kMaxFeedBytes = 4 * 1024 * 1024;
    static constexpr size_t kMaxVersionBytes = 128;

private:
    std::vector<Item> m_items;
};

} // namespace orvane
