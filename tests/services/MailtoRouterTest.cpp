// What a mailto: link asks for (that only mailto: links in any letter case are taken apart, that
// addresses are never empty, untrimmed or holding a comma, an encoded one splitting too, and that every
// value is valid UTF-8 without NUL is fuzz/MailtoFuzzer's), and the edges of routing it to a sender (the
// picker, a pick by key and a link from a page are the e2e MailtoTest's): which links are taken at all,
// what a second link, a default account or a stale one does, and which sender the picker highlights.
#include "MailtoComponents.h"
#include "MailtoRouter.h"

#include "SenderChoice.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using List = std::vector<std::string>;

MailtoComponents parsed(std::string_view url) {
    auto components = MailtoComponents::fromURL(url);
    EXPECT_TRUE(components) << url;
    return components.value_or(MailtoComponents {});
}

TEST(MailtoComponentsTest, AddressesSplitAtCommasToAccumulatesAndValuesAreDecoded) {
    // Addresses are split at commas only and passed on unchecked.
    const std::pair<const char*, List> cases[] = {
        { "mailto:a@b.c%20,%20%20d@e.f%09", { "a@b.c", "d@e.f" } },
        { "mailto:a@b.c;d@e.f", { "a@b.c;d@e.f" } }, { "mailto:%0Aa@b.c", { "\na@b.c" } },
        { "mailto:not%20an%20address,A@B.C,A@B.C", { "not an address", "A@B.C", "A@B.C" } },
    };
    for (const auto& [url, to] : cases)
        EXPECT_EQ(parsed(url).to, to) << url;

    // To accumulates, other items keep the last, unknown ones are ignored.
    auto c = parsed("mailto:first@x.y?to=second@x.y,third@x.y&cc=a@x.y&cc=b@x.y,c@x.y&bcc=d@x.y"
                    "&SUBJECT=One&subject=Two&BoDy=Hi&To=fourth@x.y&attach=/etc/passwd&in-reply-to=x&=c@x.y");
    const MailtoComponents expected = { { "first@x.y", "second@x.y", "third@x.y", "fourth@x.y" },
        { "b@x.y", "c@x.y" }, { "d@x.y" }, "Two", "Hi" };
    EXPECT_EQ(c, expected);
    // Items without a value are present but empty.
    EXPECT_EQ(parsed("mailto:a@b.c?subject&body&cc"), (MailtoComponents { { "a@b.c" }, {}, {}, "", "" }));

    // Values are decoded, but "+" and broken escapes stay text.
    const std::pair<const char*, const char*> subjects[] = {
        { "mailto:?subject=Hello%20World+again%21", "Hello World+again!" },
        { "mailto:?subject=a=b=c", "a=b=c" },
        { "mailto:?subject=Line%201%0D%0ALine%202%26%3D%3F", "Line 1\r\nLine 2&=?" },
        { "mailto:?subject=x#frag", "x" }, // a fragment is not part of the query
        { "mailto:?subject=100%", "100%" }, { "mailto:?subject=%G1%41", "%G1A" },
    };
    for (const auto& [url, subject] : subjects)
        EXPECT_EQ(parsed(url).subject, subject) << url;
}

using Text = std::optional<std::string>;
constexpr const char* kNoAccount = "00000000-0000-4000-8000-000000000000";

class MailtoRouterTest : public ::testing::Test {
protected:
    const std::string dataHome = test::freshXDGFolders(); // before the store reads it
    AccountStore store;
    int presented = 0;
    int pendingChanges = 0;
    std::vector<std::pair<std::string, MailtoComponents>> composed;
    MailtoRouter router { store, MailtoRouter::Hooks {
        [this] { ++presented; },
        [this](const Account& account, const MailtoComponents& mailto) {
            EXPECT_EQ(store.selectedAccountID(), account.id) << "selected before the page is asked";
            composed.push_back({ account.id, mailto });
        },
        [this] { ++pendingChanges; } } };
};

TEST_F(MailtoRouterTest, OnlyMailLinksForMailAccountsAreTakenAndWaitForThePickerUnlessADefaultIsValid) {
    EXPECT_FALSE(SenderChoice::highlightedID(store) || SenderChoice::forReturn(store));
    router.handleOpenURL("mailto:a@example.com");
    const Account home = store.addAccount();
    const Account calendar = store.addCalendar(home);
    store.remove(home);
    router.handleOpenURL("mailto:a@example.com");
    EXPECT_FALSE(router.pendingMailto()) << "a calendar sends no mail";
    ASSERT_TRUE(store.undoRemoval(home.id));
    for (auto url : { "https://example.com/", "mailtox:a@b.c", "javascript:alert(1)" })
        router.handleOpenURL(url);
    router.handleOpenURL("mailto:a@example.com?body=" + std::string(MailtoRouter::kMaxURLBytes, 'x'));
    EXPECT_EQ(presented + pendingChanges, 0) << "the window is not even brought forward";

    const Account work = store.addOutlookAccount();
    store.move(calendar, -2);
    EXPECT_EQ(SenderChoice::forReturn(store)->id, work.id) << "the first mail account, not a calendar";
    store.setDefaultMailtoAccountID(work.id);
    router.handleOpenURL("mailto:ana@example.com?subject=Hi");
    router.handleOpenURL("MAILTO:tom@example.com");
    EXPECT_EQ(router.pendingMailto(), MailtoComponents { { "tom@example.com" } }) << "the second replaces it";
    EXPECT_EQ(pendingChanges, 2);

    store.setAlwaysAskOnMailto(false);
    for (const Text& noDefault : { Text(), Text(kNoAccount) }) {
        router.cancel();
        store.setDefaultMailtoAccountID(noDefault);
        router.handleOpenURL("mailto:a@example.com");
        EXPECT_TRUE(router.pendingMailto());
    }
    EXPECT_TRUE(composed.empty());

    // A pick with nothing waiting does nothing; a pick of a waiting link is
    // remembered and leads the next picker.
    store.setSelectedAccountID(home.id);
    store.setDefaultMailtoAccountID(std::nullopt);
    router.cancel();
    router.pick(work);
    EXPECT_TRUE(composed.empty() && store.selectedAccountID() == home.id && !store.lastUsedSenderID());
    router.handleOpenURL("mailto:a@example.com?subject=Two");
    router.pick(work);
    ASSERT_EQ(composed.size(), 1u);
    EXPECT_EQ(composed[0], std::pair(work.id, MailtoComponents { { "a@example.com" }, {}, {}, "Two" }));
    EXPECT_EQ(SenderChoice::highlightedID(store), work.id);

    // A valid default composes at once, a megabyte link too; a calendar companion as default is still
    // selected and remembered (the web layer finds no compose script for it).
    store.setDefaultMailtoAccountID(home.id);
    EXPECT_EQ(SenderChoice::forReturn(store)->id, home.id) << "the default before the last sender";
    router.handleOpenURL("mailto:a@example.com?body=" + std::string(1024 * 1024, 'x'));
    ASSERT_EQ(composed.size(), 2u);
    EXPECT_EQ(composed[1].second.body->size(), 1024u * 1024u);
    EXPECT_EQ(store.lastUsedSenderID(), home.id);
    store.setDefaultMailtoAccountID(calendar.id);
    router.handleOpenURL("mailto:b@example.com");
    ASSERT_EQ(composed.size(), 3u);
    EXPECT_EQ(composed[2].first, calendar.id);
    EXPECT_EQ(store.lastUsedSenderID(), calendar.id);
    EXPECT_EQ(SenderChoice::recipientLine({ {}, { "c@x.y" } }), "To: New message") << "only To counts";
}

} // namespace
} // namespace orvane
