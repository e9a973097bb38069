#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

class HarnessWebTest : public WebViewTest { };

TEST_F(HarnessWebTest, PageTitleChangeIsSeenAndServerCountsRequests) {
    std::vector<std::string> titles;
    g_signal_connect(view, "notify::title", G_CALLBACK(+[](WebKitWebView* v, GParamSpec*, gpointer data) {
        if (const char* t = webkit_web_view_get_title(v))
            static_cast<std::vector<std::string>*>(data)->push_back(t);
    }), &titles);

    ASSERT_TRUE(loadFixture("/harness/title.html"));
    ASSERT_TRUE(waitUntil([&] { return !titles.empty() && titles.back() == "Inbox (3) - someone@example.com - Gmail"; }));
    EXPECT_EQ(titles.front(), "Loading");
    EXPECT_EQ(server.requestCount("/harness/title.html"), 1);
    EXPECT_EQ(server.requestCount("/missing.html"), 0);

    auto result = runJS("document.title.length + 1");
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.value, 40);

    auto async = callAsync("return await Promise.resolve(word + '!')", { { "word", "ok" } });
    ASSERT_TRUE(async.ok) << async.error;
    EXPECT_EQ(async.value, "ok!");

    auto thrown = runJS("throw new Error('boom')");
    EXPECT_FALSE(thrown.ok);
    EXPECT_NE(thrown.error.find("boom"), std::string::npos);
    g_signal_handlers_disconnect_by_data(view, &titles);
}

} // namespace
} // namespace orvane::test
