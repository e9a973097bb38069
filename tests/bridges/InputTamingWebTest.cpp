// The input-taming script in a real page: every element that takes focus, in
// every frame and whenever it was made, has correction, capitalisation and
// writing suggestions switched off.
#include "PageBridges.h"
#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

class InputTamingWebTest : public WebViewTest {
protected:
    void SetUp() override {
        WebViewTest::SetUp();
        WebKitUserContentManager* manager = webkit_web_view_get_user_content_manager(view);
        for (const auto& item : PageBridges::items()) {
            if (item.name != "bridges/input-taming.js")
                continue;
            EXPECT_EQ(item.time, WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START);
            WebKitUserScript* script = PageBridges::script(item);
            ASSERT_NE(script, nullptr);
            webkit_user_content_manager_add_script(manager, script);
            webkit_user_script_unref(script);
        }
        ASSERT_TRUE(loadFixture("/paste/"));
    }

    // The three attributes of the element, as "autocorrect/autocapitalize/writingsuggestions".
    std::string attributes(const std::string& element) {
        auto result = runJS("(e => [e.getAttribute('autocorrect'), e.getAttribute('autocapitalize'), "
                            "e.getAttribute('writingsuggestions')].join('/'))(" + element + ")");
        EXPECT_TRUE(result.ok) << result.error;
        return result.value.is_string() ? result.value.get<std::string>() : "";
    }
    static constexpr const char* kTamed = "off/off/false";
};

TEST_F(InputTamingWebTest, FocusedElementsAreTamedInEveryFrameIncludingLaterOnes) {
    EXPECT_EQ(attributes("document.documentElement"), kTamed);
    // Nothing is tamed before it takes focus.
    EXPECT_EQ(attributes("document.querySelector('#field')"), "//");

    for (const char* selector : { "#field", "#area", "#editor" }) {
        std::string element = std::string("document.querySelector('") + selector + "')";
        ASSERT_TRUE(runJS(element + ".focus()").ok);
        EXPECT_EQ(attributes(element), kTamed) << selector;
    }

    // A field the page adds later, which had set its own values.
    ASSERT_TRUE(runJS("const late = document.createElement('input'); late.id = 'late';"
                      "late.setAttribute('autocorrect', 'on'); late.setAttribute('writingsuggestions', 'true');"
                      "document.body.appendChild(late); late.focus(); true").ok);
    EXPECT_EQ(attributes("document.querySelector('#late')"), kTamed);

    // The frame's document has the script of its own.
    ASSERT_TRUE(waitForJS("document.querySelector('#frame').contentDocument.readyState === 'complete'"));
    std::string frame = "document.querySelector('#frame').contentDocument";
    EXPECT_EQ(attributes(frame + ".documentElement"), kTamed);
    ASSERT_TRUE(runJS(frame + ".querySelector('#frame-field').focus()").ok);
    EXPECT_EQ(attributes(frame + ".querySelector('#frame-field')"), kTamed);
    ASSERT_TRUE(runJS(frame + ".querySelector('#nested').focus()").ok);
    EXPECT_EQ(attributes(frame + ".querySelector('#nested')"), kTamed);
}

} // namespace
} // namespace orvane::test
