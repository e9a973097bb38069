#include "PageProbe.h"
#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

class PageProbeWebTest : public WebViewTest {
protected:
    // The probe's answer; fails the test unless the completion runs exactly once.
    std::optional<std::string> probe(const std::string& body, const std::map<std::string, std::string>& arguments = {},
        GCancellable* cancellable = nullptr) {
        int calls = 0;
        std::optional<std::string> answer = "unset";
        PageProbe::photoURL(view, body, arguments, [&](std::optional<std::string> text) {
            ++calls;
            answer = std::move(text);
        }, cancellable);
        if (cancellable)
            g_cancellable_cancel(cancellable);
        EXPECT_TRUE(waitUntil([&] { return calls > 0; })) << body;
        drainEvents();
        EXPECT_EQ(calls, 1) << body;
        return answer;
    }
};

TEST_F(PageProbeWebTest, OnlyNonEmptyTextUpToTheLimitComesBack) {
    ASSERT_TRUE(loadFixture("/web/plain.html"));
    // Named arguments are variables of the page's own world, and the body may await.
    ASSERT_TRUE(runJS("window.pageValue = 'from the page'; true").ok);
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 20)); return acctName + ' / ' + window.pageValue;",
                  { { "acctName", "Ana \"Ruiz\" <ana@example.com>" } }),
        "Ana \"Ruiz\" <ana@example.com> / from the page");
    const std::string limit = std::to_string(PageProbe::kMaxTextBytes);
    EXPECT_EQ(probe("return 'x'.repeat(" + limit + ");").value_or("").size(), PageProbe::kMaxTextBytes);

    for (const std::string& nothing : std::vector<std::string> { "return '';", "return 42;", "return { src: 'x' };", "return null;", "",
             "throw new Error('no photo');", "return Promise.reject('no');", "this is not a script",
             "return 'x'.repeat(" + limit + " + 1);" })
        EXPECT_EQ(probe(nothing), std::nullopt) << nothing;

    auto cancellable = adopt(g_cancellable_new());
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 300)); return 'late';", {}, cancellable.get()), std::nullopt);
}

} // namespace
} // namespace orvane::test
