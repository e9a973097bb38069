// What a mailto: link asks for. That only mailto: links in any letter case
// are taken apart, that addresses are never empty, untrimmed or holding a
// comma (an encoded one splits too), and that every value is valid UTF-8
// without NUL (a link holding one asks for nothing) is fuzz/MailtoFuzzer's.
#include "MailtoComponents.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using List = std::vector<std::string>;

MailtoComponents parsed(std::string_view url) {
    auto components = MailtoComponents::fromURL(url);
    EXPECT_TRUE(components) << url;
    return components.value_or(MailtoComponents {});
}

TEST(MailtoComponentsTest, AddressesAreSplitAtCommasOnlyAndPassedOnUnchecked) {
    const std::pair<const char*, List> cases[] = {
        { "mailto:a@b.c%20,%20%20d@e.f%09", { "a@b.c", "d@e.f" } },
        { "mailto:a@b.c;d@e.f", { "a@b.c;d@e.f" } },
        { "mailto:not%20an%20address,A@B.C,A@B.C", { "not an address", "A@B.C", "A@B.C" } },
        { "mailto:j%C3%B6rg@example.de", { "jörg@example.de" } },
    };
    for (const auto& [url, to] : cases)
        EXPECT_EQ(parsed(url).to, to) << url;
}

TEST(MailtoComponentsTest, ToAccumulatesWhileOtherItemsKeepTheLastAndUnknownOnesAreIgnored) {
    auto c = parsed("mailto:first@x.y?to=second@x.y,third@x.y&cc=a@x.y&cc=b@x.y,c@x.y&bcc=d@x.y"
                    "&SUBJECT=One&subject=Two&BoDy=Hi&To=fourth@x.y&attach=/etc/passwd&in-reply-to=x&=c@x.y");
    const MailtoComponents expected = { { "first@x.y", "second@x.y", "third@x.y", "fourth@x.y" },
        { "b@x.y", "c@x.y" }, { "d@x.y" }, "Two", "Hi" };
    EXPECT_EQ(c, expected);
    // Items without a value are present but empty.
    EXPECT_EQ(parsed("mailto:a@b.c?subject&body&cc"), (MailtoComponents { { "a@b.c" }, {}, {}, "", "" }));
    EXPECT_FALSE(parsed("mailto:").subject);
}

TEST(MailtoComponentsTest, ValuesAreDecodedButPlusAndBrokenEscapesStayText) {
    const std::pair<const char*, const char*> subjects[] = {
        { "mailto:?subject=Hello%20World+again%21", "Hello World+again!" },
        { "mailto:?subject=a=b=c", "a=b=c" },
        { "mailto:?subject=Line%201%0D%0ALine%202%26%3D%3F", "Line 1\r\nLine 2&=?" },
        { "mailto:?subject=x#frag", "x" }, // a fragment is not part of the query
        { "mailto:?subject=100%", "100%" },
        { "mailto:?subject=%G1%41", "%G1A" },
    };
    for (const auto& [url, subject] : subjects)
        EXPECT_EQ(parsed(url).subject, subject) << url;
}

} // namespace
} // namespace orvane
