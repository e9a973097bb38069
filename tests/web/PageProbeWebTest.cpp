#include "support/WebViewTest.h"
#include "PageProbe.h"

namespace orvane::test {
namespace {

class PageProbeWebTest : public WebViewTest {
protected:
    // The probe's answer; fails the test when the completion does not run
    // exactly once.
    std::optional<std::string> probe(const std::string& body, const std::map<std::string, std::string>& arguments = {}) {
        int calls = 0;
        std::optional<std::string> answer;
        PageProbe::photoURL(view, body, arguments, [&](std::optional<std::string> text) {
            ++calls;
            answer = std::move(text);
        });
        EXPECT_TRUE(waitUntil([&] { return calls > 0; })) << body;
        drainEvents();
        EXPECT_EQ(calls, 1) << body;
        return answer;
    }
};

TEST_F(PageProbeWebTest, OnlyNonEmptyTextComesBack) {
    ASSERT_TRUE(loadFixture("/web/plain.html"));
    EXPECT_EQ(probe("return 'https://example.com/me.png';"), "https://example.com/me.png");
    // Named arguments are variables of the page's own world, and the body may await.
    ASSERT_TRUE(runJS("window.pageValue = 'from the page'; true").ok);
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 20)); return acctName + ' / ' + window.pageValue;",
                  { { "acctName", "Ana \"Ruiz\" <ana@example.com>" } }),
        "Ana \"Ruiz\" <ana@example.com> / from the page");

    EXPECT_EQ(probe("return '';"), std::nullopt);
    EXPECT_EQ(probe("return 42;"), std::nullopt);
    EXPECT_EQ(probe("return { src: 'x' };"), std::nullopt);
    EXPECT_EQ(probe("return null;"), std::nullopt);
    EXPECT_EQ(probe(""), std::nullopt);
    EXPECT_EQ(probe("throw new Error('no photo');"), std::nullopt);
    EXPECT_EQ(probe("return Promise.reject('no');"), std::nullopt);
    EXPECT_EQ(probe("this is not a script"), std::nullopt);

    // Up to the limit the text comes back whole; one byte more and it is refused.
    const size_t limit = PageProbe::kMaxTextBytes;
    auto atLimit = probe("return 'x'.repeat(" + std::to_string(limit) + ");");
    ASSERT_TRUE(atLimit);
    EXPECT_EQ(atLimit->size(), limit);
    EXPECT_EQ(probe("return 'x'.repeat(" + std::to_string(limit + 1) + ");"), std::nullopt);
}

TEST_F(PageProbeWebTest, CancellingAnswersWithNothing) {
    ASSERT_TRUE(loadFixture("/web/plain.html"));
    auto cancellable = adopt(g_cancellable_new());
    int calls = 0;
    std::optional<std::string> answer = "unset";
    PageProbe::photoURL(view, "await new Promise(r => setTimeout(r, 300)); return 'late';", {},
        [&](std::optional<std::string> text) {
            ++calls;
            answer = std::move(text);
        },
        cancellable.get());
    g_cancellable_cancel(cancellable.get());
    ASSERT_TRUE(waitUntil([&] { return calls > 0; }));
    EXPECT_EQ(answer, std::nullopt);
    EXPECT_EQ(calls, 1);
}

} // namespace
} // namespace orvane::test
