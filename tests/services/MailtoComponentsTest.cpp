#include "MailtoComponents.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using List = std::vector<std::string>;
using Text = std::optional<std::string>;

MailtoComponents parsed(std::string_view url) {
    auto components = MailtoComponents::fromURL(url);
    EXPECT_TRUE(components) << url;
    return components.value_or(MailtoComponents {});
}

TEST(MailtoComponentsTest, OnlyMailLinksInAnyCaseAreTakenApart) {
    EXPECT_EQ(parsed("MAILTO:a@b.c").to, List({ "a@b.c" }));
    EXPECT_EQ(parsed("MailTo:a@b.c").to, List({ "a@b.c" }));
    for (auto url : { "https://mail.google.com/", "mailtox:a@b.c", "mail:a@b.c", "a@b.c", ":a@b.c", "", " mailto:a@b.c" })
        EXPECT_FALSE(MailtoComponents::fromURL(url)) << url;

    EXPECT_EQ(parsed("mailto:"), MailtoComponents {});
    EXPECT_EQ(parsed("mailto:?"), MailtoComponents {});
    EXPECT_FALSE(parsed("mailto:").subject);
    EXPECT_FALSE(parsed("mailto:").body);
}

TEST(MailtoComponentsTest, AddressesAreSplitAtCommasOnlyAndTrimmed) {
    EXPECT_EQ(parsed("mailto:a@b.c,%20d@e.f").to, List({ "a@b.c", "d@e.f" }));
    EXPECT_EQ(parsed("mailto:a@b.c%20,%20%20d@e.f%09").to, List({ "a@b.c", "d@e.f" }));
    EXPECT_EQ(parsed("mailto:a@b.c;d@e.f").to, List({ "a@b.c;d@e.f" }));
    EXPECT_EQ(parsed("mailto:a@b.c%2Cd@e.f").to, List({ "a@b.c", "d@e.f" }));
    EXPECT_EQ(parsed("mailto:,%20,%20x").to, List({ "x" }));
    EXPECT_EQ(parsed("mailto:?to=,,%09,").to, List());
    // Line breaks are not trimmed; addresses are passed on unchecked.
    EXPECT_EQ(parsed("mailto:%0Aa@b.c").to, List({ "\na@b.c" }));
    EXPECT_EQ(parsed("mailto:not%20an%20address,A@B.C,A@B.C").to, List({ "not an address", "A@B.C", "A@B.C" }));
}

TEST(MailtoComponentsTest, ToAccumulatesWhileOtherItemsKeepTheLast) {
    auto c = parsed("mailto:first@x.y?to=second@x.y,third@x.y&cc=a@x.y&cc=b@x.y,c@x.y&bcc=d@x.y"
                    "&subject=One&subject=Two&body=Hi&To=fourth@x.y");
    EXPECT_EQ(c.to, List({ "first@x.y", "second@x.y", "third@x.y", "fourth@x.y" }));
    EXPECT_EQ(c.cc, List({ "b@x.y", "c@x.y" }));
    EXPECT_EQ(c.bcc, List({ "d@x.y" }));
    EXPECT_EQ(c.subject, Text("Two"));
    EXPECT_EQ(c.body, Text("Hi"));

    EXPECT_EQ(parsed("mailto:a@x.y?cc=b@x.y&cc=").cc, List());
    EXPECT_EQ(parsed("mailto:?SUBJECT=Hi&BoDy=There").subject, Text("Hi"));
    EXPECT_EQ(parsed("mailto:?SUBJECT=Hi&BoDy=There").body, Text("There"));

    auto unknown = parsed("mailto:a@x.y?in-reply-to=%3Cid@x%3E&x-to=b@x.y&=c@x.y&tto=d@x.y");
    EXPECT_EQ(unknown, MailtoComponents { .to = { "a@x.y" } });
}

TEST(MailtoComponentsTest, ValuesAreDecodedButPlusStaysAPlus) {
    auto c = parsed("mailto:a@b.c?subject=Hello%20World+again%21&body=Line%201%0D%0ALine%202%26%3D%3F");
    EXPECT_EQ(c.subject, Text("Hello World+again!"));
    EXPECT_EQ(c.body, Text("Line 1\r\nLine 2&=?"));
    EXPECT_EQ(parsed("mailto:?subject=a=b=c").subject, Text("a=b=c"));
    EXPECT_EQ(parsed("mailto:?subject=Gr%C3%BC%C3%9Fe%20%E2%80%94%20%F0%9F%93%AC").subject, Text("Grüße — 📬"));
    EXPECT_EQ(parsed("mailto:j%C3%B6rg@example.de").to, List({ "jörg@example.de" }));
    // A fragment is not part of the query.
    EXPECT_EQ(parsed("mailto:a@b.c?subject=x#frag").subject, Text("x"));
}

TEST(MailtoComponentsTest, ItemsWithoutAValueArePresentButEmpty) {
    auto c = parsed("mailto:a@b.c?subject&body&cc");
    EXPECT_EQ(c.subject, Text(""));
    EXPECT_EQ(c.body, Text(""));
    EXPECT_EQ(c.cc, List());
    EXPECT_EQ(c.to, List({ "a@b.c" }));
    EXPECT_EQ(parsed("mailto:a@b.c?subject=&body=").subject, Text(""));
    EXPECT_EQ(parsed("mailto:a@b.c?&&subject=x&").subject, Text("x"));
}

TEST(MailtoComponentsTest, BrokenEscapesStayAsTextAndUndecodableLinksGiveTheEmptyValue) {
    EXPECT_EQ(parsed("mailto:a%zz@b.c").to, List({ "a%zz@b.c" }));
    EXPECT_EQ(parsed("mailto:a@b.c?subject=100%").subject, Text("100%"));
    EXPECT_EQ(parsed("mailto:a@b.c?subject=%4").subject, Text("%4"));
    EXPECT_EQ(parsed("mailto:a@b.c?subject=%G1%41").subject, Text("%G1A"));

    // A NUL or bytes that are not UTF-8, in the path or in the query: the link
    // is a mail link but cannot be read, so it asks for nothing.
    for (auto url : { "mailto:a%00@b.c", "mailto:a%FF@b.c", "mailto:a@b.c?subject=%00", "mailto:a@b.c?subject=%C3",
             "mailto:a@b.c?x%FF=1" }) {
        EXPECT_EQ(parsed(url), MailtoComponents {}) << url;
    }
}

TEST(MailtoComponentsTest, EqualityComparesEveryFieldInOrder) {
    MailtoComponents a { { "x", "y" }, { "c" }, {}, "s", std::nullopt };
    MailtoComponents b = a;
    EXPECT_EQ(a, b);
    b.to = { "y", "x" };
    EXPECT_NE(a, b);
    b = a;
    b.body = "";
    EXPECT_NE(a, b);
    b = a;
    b.subject = std::nullopt;
    EXPECT_NE(a, b);
}

} // namespace
} // namespace orvane
