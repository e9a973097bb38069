#include "Appcast.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

std::string feed(const std::string& items) {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><title>Orvane</title>)"
        + items + "</channel></rss>";
}

// Bounds, valid text, web addresses only and the version order's symmetry
// hold for any feed (fuzz/AppcastFuzzer); here is what a feed means.
// Shaped like feeds in the wild: newest item not first, the enclosure-
// attribute style next to the element style, a minimum system version, items
// for other systems and channels, items missing what they need, and unsafe
// addresses.
TEST(Appcast, PicksTheNewestItemThisSystemMayInstallAndKeepsOnlyWebAddresses) {
    auto appcast = Appcast::parse(feed(R"(
    <item><title>Version 1.9</title><sparkle:version>1.9</sparkle:version>
      <description><![CDATA[<h2>Fixes</h2><ul><li>Faster start</li><li>Fewer crashes</li></ul>]]></description>
      <enclosure url="https://dl.orvane.example/orvane-1.9.flatpak" length="1024"/></item>
    <item><sparkle:version>200</sparkle:version><sparkle:minimumSystemVersion>13.0</sparkle:minimumSystemVersion>
      <link>https://orvane.example/download/2.0</link></item>
    <item><sparkle:releaseNotesLink>https://orvane.example/notes/1.10.html</sparkle:releaseNotesLink>
      <enclosure url="https://dl.orvane.example/1.10" sparkle:version="1.10" sparkle:shortVersionString="1.10 &#x202E;gpj.exe"/></item>
    <item><sparkle:version>900</sparkle:version><enclosure url="https://dl.orvane.example/9.zip" sparkle:os="macos"/></item>
    <item><sparkle:version>500</sparkle:version><sparkle:channel>beta</sparkle:channel><link>https://orvane.example/beta</link></item>
    <item><title>No version</title><link>https://orvane.example/none</link></item>
    <item><sparkle:version>700</sparkle:version></item>
    <item><sparkle:version>9</sparkle:version><link>javascript:alert(1)</link></item>
    <item><sparkle:version>9</sparkle:version><enclosure url="file:///etc/passwd"/></item>
    <item><sparkle:version>9</sparkle:version><enclosure url="https://orvane.example@evil.example/x"/></item>
    <item><sparkle:version>1.2</sparkle:version><link>javascript:x</link><enclosure url="https://dl.orvane.example/1.2"/>
      <sparkle:releaseNotesLink>data:text/html,hi</sparkle:releaseNotesLink></item>
    )"));
    ASSERT_TRUE(appcast);
    ASSERT_EQ(appcast->items().size(), 4u) << "items for other systems or channels, or without version or safe download, are left out";
    const auto& first = appcast->items()[0];
    EXPECT_EQ(first.downloadURL, "https://dl.orvane.example/orvane-1.9.flatpak");
    EXPECT_EQ(Appcast::plainText(first.descriptionHTML), "Fixes\n\n• Faster start\n• Fewer crashes");
    EXPECT_EQ(appcast->items()[1].downloadURL, "https://orvane.example/download/2.0") << "<link> is the download page";
    const auto& attributes = appcast->items()[2];
    EXPECT_EQ(attributes.version, "1.10");
    EXPECT_EQ(attributes.displayVersion, "1.10 gpj.exe") << "the bidirectional override is not shown";
    EXPECT_EQ(attributes.releaseNotesURL, "https://orvane.example/notes/1.10.html");
    EXPECT_EQ(appcast->items()[3].downloadURL, "https://dl.orvane.example/1.2") << "falls back to the enclosure";
    EXPECT_EQ(appcast->items()[3].releaseNotesURL, "");

    EXPECT_EQ(appcast->newest(std::string("12.0"))->version, "1.10") << "1.10 > 1.9; 2.0 needs 13.0";
    EXPECT_EQ(appcast->newest(std::string("13.0"))->version, "200");
    EXPECT_EQ(appcast->newest(std::nullopt)->version, "200") << "an unknown system is not held back";
    EXPECT_EQ(Appcast::parse(feed(""))->newest(std::string("12.0")), nullptr);
}

TEST(Appcast, ComparesVersionsTheWayAppcastsDo) {
    const std::tuple<const char*, const char*, int> cases[] = {
        { "1.10", "1.9", 1 }, { "1.0.", "1.0", 0 }, { "1.0.1", "1.0", 1 }, { "2.0", "2.0b3", 1 }, { "2.0b4", "2.0b3", 1 },
        { "1.0", "1.0-beta", 1 }, { "1.0-beta", "0.1.0", 1 }, { "1.0-beta2", "1.0-beta10", -1 }, { "010", "9", 1 },
        { "99999999999999999999999999", "99999999999999999999999998", 1 }, { "\xd9\xa3", "0.1.0", -1 }, { "", "", 0 },
    };
    for (const auto& [a, b, order] : cases)
        EXPECT_EQ(Appcast::compareVersions(a, b), order) << a << " vs " << b;
}

TEST(Appcast, RefusesWhatIsNotAFeedOrHasADocumentTypeAndReadsNotesAsPlainText) {
    const std::string dtd = R"(<?xml version="1.0"?><!DOCTYPE rss [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">
<!ENTITY secret SYSTEM "file:///etc/passwd">]><rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
<item><title>)";
    const std::string item = R"(</title><sparkle:version>9</sparkle:version><link>https://orvane.example/</link></item></channel></rss>)";
    for (const std::string& bytes : { std::string("hello"), std::string("<html><body>Not found</body></html>"),
             std::string("<?xml version=\"1.0\"?><feed xmlns=\"http://www.w3.org/2005/Atom\"/>"), dtd + "&b;" + item,
             dtd + "&secret;" + item, feed(std::string(Appcast::kMaxFeedBytes, ' ')) })
        EXPECT_FALSE(Appcast::parse(bytes)) << bytes.substr(0, 80);

    EXPECT_EQ(Appcast::plainText("<p>One   two\n three</p><script>alert(1)</script><style>p{}</style><p>Four<br>Five &amp; six</p>"),
        "One two three\n\nFour\nFive & six");
}

} // namespace
} // namespace orvane
