// The paste and input scripts of every account view, in an account's real
// view: pastes are real ClipboardEvents carrying a DataTransfer, dispatched on
// the element the user pastes into with the caret at its end (the page's
// __paste, __describe and __caretAtEnd, tests/fixtures/paste/index.html).
#include "BridgeScripts.h"
#include "web/ManagerWebFixture.h"

namespace orvane::test {
namespace {

using nlohmann::json;

constexpr const char* kTD = "border:1px solid #cccccc;padding:6px 10px;";
constexpr const char* kTH = "border:1px solid #cccccc;padding:6px 10px;background:#f1f3f4;font-weight:bold;";
constexpr const char* kTBL = "border-collapse:collapse;margin:4px 0;font-size:14px;";

class TablePasteWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        useServices("/paste/");
        view = showNewAccount();
    }

    json js(const std::string& expression) { return ManagerWebFixture::js(view, expression); }
    json paste(const std::string& text, const std::string& selector = "#editor", const std::string& html = "") {
        return js("__paste(" + jsonLiteral(selector) + ", " + jsonLiteral(text) + ", " + jsonLiteral(html) + ")");
    }
    // The editor's content after pasting the text into an empty editor.
    json pasted(const std::string& text) {
        js("document.querySelector('#editor').textContent = ''");
        EXPECT_EQ(paste(text), taken()) << text;
        return js("__describe('#editor')");
    }
    static json table(json head, json body) { return { { "style", kTBL }, { "head", head }, { "body", body } }; }
    static json th(const std::string& text, const std::string& align = "") { return { "th", text, kTH + align, 0 }; }
    static json td(const std::string& text, const std::string& align = "") { return { "td", text, kTD + align, 0 }; }
    static json taken() { return { { "prevented", true }, { "pageSaw", 0 } }; }
    static json leftAlone() { return { { "prevented", false }, { "pageSaw", 1 } }; }
};

// Every element that takes focus, in every frame and whenever it was made,
// has correction, capitalisation and writing suggestions switched off; pipe
// and drawn tables pasted become tables, other pastes are left alone.
TEST_F(TablePasteWebTest, FocusedElementsAreTamedAndPlainTablesPastedBecomeTables) {
    auto attributes = [&](const std::string& element) {
        return js("(e => [e.getAttribute('autocorrect'), e.getAttribute('autocapitalize'), e.getAttribute('writingsuggestions')].join('/'))("
            + element + ")");
    };
    const std::string frame = "document.querySelector('#frame').contentDocument";
    EXPECT_EQ(attributes("document.documentElement"), "off/off/false");
    EXPECT_EQ(attributes("document.querySelector('#field')"), "//") << "nothing is tamed before it takes focus";
    run(view, "const late = document.createElement('input'); late.id = 'late'; late.setAttribute('autocorrect', 'on');"
              "document.body.appendChild(late)");
    ASSERT_TRUE(waitForJS(view, frame + ".readyState === 'complete'"));
    for (const std::string& element : std::vector<std::string> { "document.querySelector('#field')", "document.querySelector('#area')", "document.querySelector('#editor')",
             "document.querySelector('#late')", frame + ".documentElement", frame + ".querySelector('#frame-field')", frame + ".querySelector('#nested')" }) {
        js(element + ".focus(); true");
        EXPECT_EQ(attributes(element), "off/off/false") << element;
    }

    EXPECT_EQ(pasted("| Name | Size |\n| --- | --- |"), json::array({ table({ th("Name"), th("Size") }, json::array()) }));
    EXPECT_TRUE(js("__caretAtEnd()"));
    // Colons set every cell's alignment; outer pipes and LF line ends are optional.
    EXPECT_EQ(pasted("a | b | c | d\r\n:-: | --: | :-- | -\r\n1 | 2 | 3 | 4"), json::array({ table(
        { th("a", "text-align:center;"), th("b", "text-align:right;"), th("c", "text-align:left;"), th("d") },
        { { td("1", "text-align:center;"), td("2", "text-align:right;"), td("3", "text-align:left;"), td("4") } }) }));
    // Rows longer than the header lose cells, shorter ones get empty cells;
    // the table ends at the first line without a pipe, which stays text.
    EXPECT_EQ(pasted("|x|y|\n|-|-|\n|1|2|3|\n|4|\nafter"),
        json::array({ table({ th("x"), th("y") }, { { td("1"), td("2") }, { td("4"), td("") } }), "br", "after" }));
    EXPECT_TRUE(js("__caretAtEnd()"));
    EXPECT_EQ(pasted("┌──────┬──────┐\n│ Name │ Size │\n├──────┼──────┤\n│ a.txt│ 2 kB │\n└──────┴──────┘"),
        json::array({ table({ th("Name"), th("Size") }, { { td("a.txt"), td("2 kB") } }) }));
    // No break before a table, one after it; an empty line survives as an empty text.
    EXPECT_EQ(pasted("Hello,\n\nsee:\n| k | v |\n|---|---|\n| 1 | 2 |\nThanks"),
        json::array({ "Hello,", "br", "", "br", "see:", table({ th("k"), th("v") }, { { td("1"), td("2") } }), "br", "Thanks" }));

    // Cell text is never markup.
    js("window.__ran = 0");
    auto parts = pasted("| <img src=x onerror=\"window.__ran=1\"> | <b>b</b> |\n|---|---|\n| <script>window.__ran=2</script> | &amp; |");
    EXPECT_EQ(parts, json::array({ table({ th("<img src=x onerror=\"window.__ran=1\">"), th("<b>b</b>") },
        { { td("<script>window.__ran=2</script>"), td("&amp;") } }) }));
    EXPECT_EQ(js("window.__ran"), 0);

    // A second injection into the same frame adds nothing; the frame has its own copy.
    run(view, std::string(BridgeScripts::text("bridges/table-paste.js")));
    EXPECT_EQ(pasted("| a |\n|---|").size(), 1u);
    EXPECT_EQ(js("__paste('#nested', '| f |\\n| - |', '', document.querySelector('#frame').contentDocument).prevented"), true);
    EXPECT_EQ(js("document.querySelector('#frame').contentDocument.querySelectorAll('#nested table').length"), 1);
    EXPECT_EQ(js("__describe('#editor').length"), 1);

    // Pastes without plain tables are left to the page and the browser.
    js("document.querySelector('#editor').textContent = ''");
    EXPECT_EQ(paste("a | b"), leftAlone()) << "no delimiter line";
    EXPECT_EQ(paste("┌────┐\n└────┘ | not a table"), leftAlone());
    EXPECT_EQ(paste("| a | b |\n|---|---|", "#editor", "<meta charset=utf-8><TABLE\n><tr><td>a</td></tr></TABLE>"), leftAlone())
        << "a real table on the clipboard is the page's";
    for (const char* selector : { "#field", "#area", "#inner-field" })
        EXPECT_EQ(paste("| a | b |\n|---|---|", selector), leftAlone()) << selector;
    js("document.activeElement.blur()");
    EXPECT_EQ(paste("| a | b |\n|---|---|", "#static"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', null, '')"), leftAlone());
    EXPECT_EQ(js("__describe('#editor')"), json::array());
    // 5 MB of lines with pipes and no table, and lines of 10,000 pipes, end.
    EXPECT_EQ(js("__paste('#editor', 'a | b c d e f g h i j k\\n'.repeat(220000), '')"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', ' - | '.repeat(10000) + '\\n' + ' :-: | '.repeat(10000) + 'x\\n', '')"), leftAlone());
}

} // namespace
} // namespace orvane::test
