#include "Appcast.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>

namespace orvane {
namespace {

std::string feed(const std::string& items) {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle" xmlns:dc="http://purl.org/dc/elements/1.1/">
  <channel>
    <title>Orvane Changelog</title>
    <link>https://orvane.example/appcast.xml</link>
    <language>en</language>
)" + items + R"(
  </channel>
</rss>
)";
}

// Shaped like feeds in the wild: newest item not first, the old enclosure-
// attribute style next to the element style, a minimum system version,
// items for other systems and channels, and items missing what they need.
const std::string kRealWorldFeed = feed(R"(
    <item>
      <title>Version 1.9</title>
      <pubDate>Mon, 03 Feb 2025 10:00:00 +0000</pubDate>
      <sparkle:version>1.9</sparkle:version>
      <sparkle:shortVersionString>1.9</sparkle:shortVersionString>
      <description><![CDATA[<h2>Fixes</h2><ul><li>Faster start</li><li>Fewer crashes</li></ul>]]></description>
      <enclosure url="https://dl.orvane.example/orvane-1.9.flatpak" length="1024" type="application/octet-stream"/>
    </item>
    <item>
      <title>Version 2.0 (needs a newer system)</title>
      <sparkle:version>200</sparkle:version>
      <sparkle:shortVersionString>2.0</sparkle:shortVersionString>
      <sparkle:minimumSystemVersion>13.0</sparkle:minimumSystemVersion>
      <link>https://orvane.example/download/2.0</link>
    </item>
    <item>
      <title>Version 1.10</title>
      <sparkle:releaseNotesLink>https://orvane.example/notes/1.10.html</sparkle:releaseNotesLink>
      <enclosure url="https://dl.orvane.example/orvane-1.10.flatpak" sparkle:version="1.10" sparkle:shortVersionString="1.10 &#x202E;gpj.exe" length="1" type="application/octet-stream"/>
    </item>
    <item>
      <title>Version 9 for another system</title>
      <sparkle:version>900</sparkle:version>
      <enclosure url="https://dl.orvane.example/orvane-9.zip" sparkle:os="macos" length="1"/>
    </item>
    <item>
      <title>Version 5 beta</title>
      <sparkle:version>500</sparkle:version>
      <sparkle:channel>beta</sparkle:channel>
      <link>https://orvane.example/beta</link>
    </item>
    <item><title>No version</title><link>https://orvane.example/none</link></item>
    <item><title>No download</title><sparkle:version>700</sparkle:version></item>
)");

TEST(Appcast, ReadsRealWorldFeedsAndPicksTheNewestItemThisSystemMayInstall) {
    auto appcast = Appcast::parse(kRealWorldFeed);
    ASSERT_TRUE(appcast);
    ASSERT_EQ(appcast->items().size(), 3u) << "items for other systems, channels or without version or download are left out";

    const auto& first = appcast->items()[0];
    EXPECT_EQ(first.version, "1.9");
    EXPECT_EQ(first.title, "Version 1.9");
    EXPECT_EQ(first.downloadURL, "https://dl.orvane.example/orvane-1.9.flatpak");
    EXPECT_EQ(Appcast::plainText(first.descriptionHTML), "Fixes\n\n• Faster start\n• Fewer crashes");

    const auto& attributes = appcast->items()[2];
    EXPECT_EQ(attributes.version, "1.10") << "version from the enclosure's attributes";
    EXPECT_EQ(attributes.displayVersion, "1.10 gpj.exe") << "the bidirectional override is not shown";
    EXPECT_EQ(attributes.releaseNotesURL, "https://orvane.example/notes/1.10.html");

    const auto& later = appcast->items()[1];
    EXPECT_EQ(later.minimumSystemVersion, "13.0");
    EXPECT_EQ(later.downloadURL, "https://orvane.example/download/2.0") << "<link> is the download page";

    ASSERT_TRUE(appcast->newest(std::string("12.0")));
    EXPECT_EQ(appcast->newest(std::string("12.0"))->version, "1.10") << "1.10 > 1.9; 2.0 needs 13.0";
    EXPECT_EQ(appcast->newest(std::string("13.0"))->version, "200");
    EXPECT_EQ(appcast->newest(std::nullopt)->version, "200") << "an unknown system is not held back";
    EXPECT_EQ(Appcast::parse(feed(""))->newest(std::string("12.0")), nullptr);
}

TEST(Appcast, ComparesVersionsTheWayAppcastsDo) {
    struct Case { const char* a; const char* b; int order; };
    const Case cases[] = {
        {"1.10", "1.9", 1},
        {"1.0", "1.0", 0},
        {"1.0.1", "1.0", 1},
        {"1.0.", "1.0", 0},
        {"2.0", "2.0b3", 1},
        {"2.0b4", "2.0b3", 1},
        {"1.0", "1.0-beta", 1},
        {"1.0-beta", "0.1.0", 1},
        {"1.0-beta2", "1.0-beta10", -1},
        {"010", "9", 1},
        {"99999999999999999999999999", "99999999999999999999999998", 1},
        {"\xd9\xa3", "0.1.0", -1}, // an Arabic-Indic digit is not a number here
        {"", "0.1.0", -1},
        {"", "", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Appcast::compareVersions(c.a, c.b), c.order) << c.a << " vs " << c.b;
        EXPECT_EQ(Appcast::compareVersions(c.b, c.a), -c.order) << c.b << " vs " << c.a;
    }
    std::string forty;
    for (int i = 0; i < 40; ++i)
        forty += (i ? "." : "") + std::to_string(i % 3);
    EXPECT_EQ(Appcast::compareVersions(forty, forty), 0);
    EXPECT_EQ(Appcast::compareVersions(forty + ".1", forty), 1);
    EXPECT_EQ(Appcast::compareVersions(forty, "0.1.2"), 1);
    EXPECT_EQ(Appcast::compareVersions(forty, "0.1.3"), -1);
}

TEST(Appcast, RefusesWhatIsNotAFeedAndDropsUnsafeItems) {
    for (const char* bytes : {"", "hello", "{\"items\":[]}", "<html><body>Not found</body></html>",
             "<rss><channel><item><sparkle:version>", "<?xml version=\"1.0\"?><feed xmlns=\"http://www.w3.org/2005/Atom\"/>"})
        EXPECT_FALSE(Appcast::parse(bytes)) << bytes;

    std::string huge = feed(std::string(Appcast::kMaxFeedBytes, ' '));
    EXPECT_FALSE(Appcast::parse(huge)) << "larger than the cap";

    // Entity expansion and external entities: a feed has no business with a DTD.
    const char* laughs = R"(<?xml version="1.0"?>
<!DOCTYPE rss [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;"><!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;">
<!ENTITY d "&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;"><!ENTITY e "&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;"><!ENTITY f "&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;">
<!ENTITY g "&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;"><!ENTITY h "&g;&g;&g;&g;&g;&g;&g;&g;&g;&g;">]>
<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><item><title>&h;</title>
<sparkle:version>9</sparkle:version><link>https://orvane.example/</link></item></channel></rss>)";
    auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(Appcast::parse(laughs));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    const char* external = R"(<?xml version="1.0"?><!DOCTYPE rss [<!ENTITY secret SYSTEM "file:///etc/passwd">]>
<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><item><title>&secret;</title>
<sparkle:version>9</sparkle:version><link>https://orvane.example/</link></item></channel></rss>)";
    EXPECT_FALSE(Appcast::parse(external));

    auto unsafe = Appcast::parse(feed(R"(
        <item><sparkle:version>9</sparkle:version><link>javascript:alert(1)</link></item>
        <item><sparkle:version>9</sparkle:version><enclosure url="file:///etc/passwd"/></item>
        <item><sparkle:version>9</sparkle:version><enclosure url="https://orvane.example@evil.example/x"/></item>
        <item><sparkle:version>9</sparkle:version><enclosure url="https:///no-host"/></item>
        <item><sparkle:version>9</sparkle:version><enclosure url="https://orvane.example/a b"/></item>
        <item><sparkle:version></sparkle:version><link>https://orvane.example/</link></item>
        <item><sparkle:version>)" + std::string(200, '1') + R"(</sparkle:version><link>https://orvane.example/</link></item>
        <item><sparkle:version>9</sparkle:version><link>javascript:x</link><enclosure url="https://dl.orvane.example/9"/></item>
        <item><sparkle:version>8</sparkle:version><sparkle:releaseNotesLink>data:text/html,hi</sparkle:releaseNotesLink><link>HTTPS://orvane.example/8</link></item>
    )"));
    ASSERT_TRUE(unsafe);
    ASSERT_EQ(unsafe->items().size(), 2u);
    EXPECT_EQ(unsafe->items()[0].downloadURL, "https://dl.orvane.example/9") << "falls back to the enclosure";
    EXPECT_EQ(unsafe->items()[1].releaseNotesURL, "") << "only web addresses are kept";
    for (const auto& item : unsafe->items())
        EXPECT_TRUE(Appcast::isWebAddress(item.downloadURL));
}

TEST(Appcast, ReleaseNotesBecomeBoundedPlainText) {
    EXPECT_EQ(Appcast::plainText("<p>One   two\n three</p><script>alert(1)</script><style>p{}</style><p>Four<br>Five</p>"),
        "One two three\n\nFour\nFive");
    EXPECT_EQ(Appcast::plainText("Plain &amp; simple"), "Plain & simple");
    EXPECT_EQ(Appcast::plainText(""), "");
    std::string many;
    for (int i = 0; i < 2000; ++i)
        many += "<li>Привет мир</li>";
    std::string text = Appcast::plainText(many, 100);
    EXPECT_LE(text.size(), 100u + sizeof("…"));
    EXPECT_TRUE(g_utf8_validate(text.c_str(), -1, nullptr)) << "cut on a character boundary";
    std::string deep;
    for (int i = 0; i < 5000; ++i)
        deep += "<div>";
    deep += "deep";
    EXPECT_EQ(Appcast::plainText(deep), "") << "text nested deeper than any real notes is skipped";
}

} // namespace
} // namespace orvane
