// The table-paste script in a real page, driven by real paste events: a
// ClipboardEvent carrying a DataTransfer, dispatched on the element the user
// pastes into, with the caret at the end of that element.
#include "WebScripts.h"
#include "PageBridges.h"
#include "MailService.h"
#include "support/WebViewTest.h"

namespace orvane::test {
namespace {

constexpr const char* kTD = "border:1px solid #cccccc;padding:6px 10px;";
constexpr const char* kTH = "border:1px solid #cccccc;padding:6px 10px;background:#f1f3f4;font-weight:bold;";
constexpr const char* kTBL = "border-collapse:collapse;margin:4px 0;font-size:14px;";

// Test helpers put into the page: __paste(selector, text, html) pastes and
// reports whether the event was taken over and whether the page's own paste
// handler saw it; __describe(selector) lists the element's children (text,
// line breaks, tables cell by cell with their styles).
constexpr const char* kHelpers = R"JS(
window.__paste = (selector, text, html, doc) => {
    doc = doc || document;
    const target = doc.querySelector(selector);
    target.focus();
    if (target.isContentEditable) {
        const range = doc.createRange();
        range.selectNodeContents(target);
        range.collapse(false);
        const selection = doc.defaultView.getSelection();
        selection.removeAllRanges();
        selection.addRange(range);
    }
    const data = new DataTransfer();
    if (text !== null)
        data.setData('text/plain', text);
    if (html)
        data.setData('text/html', html);
    const before = window.__pageSawPaste;
    const event = new ClipboardEvent('paste', { clipboardData: data, bubbles: true, cancelable: true });
    target.dispatchEvent(event);
    return { prevented: event.defaultPrevented, pageSaw: window.__pageSawPaste - before };
};
window.__describe = (selector, doc) => {
    const cells = row => Array.from(row.cells).map(c => ({ text: c.textContent, style: c.getAttribute('style'),
        tag: c.tagName.toLowerCase(), children: c.children.length }));
    return Array.from((doc || document).querySelector(selector).childNodes).map(node => {
        if (node.nodeType === Node.TEXT_NODE)
            return { text: node.data };
        if (node.tagName === 'BR')
            return 'br';
        if (node.tagName === 'TABLE')
            return { style: node.getAttribute('style'), head: node.tHead.rows.length === 1 ? cells(node.tHead.rows[0]) : null,
                body: Array.from(node.tBodies[0].rows).map(cells) };
        return { tag: node.tagName.toLowerCase() };
    });
};
window.__caretAfterLastChild = selector => {
    const editor = document.querySelector(selector);
    const selection = getSelection();
    if (selection.rangeCount !== 1)
        return false;
    const range = selection.getRangeAt(0);
    return range.collapsed && range.startContainer === editor && range.startOffset === editor.childNodes.length;
};
true
)JS";

class TablePasteWebTest : public WebViewTest {
protected:
    void SetUp() override {
        WebViewTest::SetUp();
        // The view gets the same scripts as an account view, from the same table.
        WebKitUserContentManager* manager = webkit_web_view_get_user_content_manager(view);
        int installed = 0;
        for (const auto& item : PageBridges::items()) {
            if (item.name != "bridges/table-paste.js" && item.name != "bridges/input-taming.js")
                continue;
            WebKitUserScript* script = PageBridges::script(item);
            ASSERT_NE(script, nullptr) << item.name << " is not in the bundle";
            webkit_user_content_manager_add_script(manager, script);
            webkit_user_script_unref(script);
            ++installed;
        }
        ASSERT_EQ(installed, 2);
        ASSERT_TRUE(loadFixture("/paste/"));
        ASSERT_TRUE(runJS(kHelpers).ok);
    }

    nlohmann::json js(const std::string& expression) {
        auto result = runJS(expression);
        EXPECT_TRUE(result.ok) << expression << ": " << result.error;
        return result.value;
    }

    nlohmann::json paste(const std::string& text, const std::string& selector = "#editor", const std::string& html = "") {
        return js("__paste(" + jsonLiteral(selector) + ", " + jsonLiteral(text) + ", " + jsonLiteral(html) + ")");
    }

    nlohmann::json editor() { return js("__describe('#editor')"); }
    void clearEditor() { js("document.querySelector('#editor').textContent = ''"); }

    static nlohmann::json cell(const std::string& text, const std::string& style, const char* tag = "td") {
        return { { "text", text }, { "style", style }, { "tag", tag }, { "children", 0 } };
    }
    static nlohmann::json taken() { return { { "prevented", true }, { "pageSaw", 0 } }; }
    static nlohmann::json leftAlone() { return { { "prevented", false }, { "pageSaw", 1 } }; }
};

TEST_F(TablePasteWebTest, PipeTablesBecomeTablesWithAlignmentsAndTheCaretAfterThem) {
    // Header and delimiter only: a table without body rows.
    EXPECT_EQ(paste("| Name | Size |\n| --- | --- |"), taken());
    nlohmann::json headerOnly = nlohmann::json::array({ { { "style", kTBL },
        { "head", { cell("Name", kTH, "th"), cell("Size", kTH, "th") } }, { "body", nlohmann::json::array() } } });
    EXPECT_EQ(editor(), headerOnly);
    EXPECT_TRUE(js("__caretAfterLastChild('#editor')"));

    // Colons set the alignment of every cell of their column; without outer
    // pipes and with CR LF line ends.
    clearEditor();
    EXPECT_EQ(paste("a | b | c | d\r\n:-: | --: | :-- | -\r\n1 | 2 | 3 | 4"), taken());
    std::string center = std::string(kTD) + "text-align:center;";
    std::string right = std::string(kTD) + "text-align:right;";
    std::string left = std::string(kTD) + "text-align:left;";
    nlohmann::json aligned = nlohmann::json::array({ { { "style", kTBL },
        { "head", { cell("a", std::string(kTH) + "text-align:center;", "th"), cell("b", std::string(kTH) + "text-align:right;", "th"),
                      cell("c", std::string(kTH) + "text-align:left;", "th"), cell("d", kTH, "th") } },
        { "body", { { cell("1", center), cell("2", right), cell("3", left), cell("4", kTD) } } } } });
    EXPECT_EQ(editor(), aligned);

    // Rows longer than the header lose cells, shorter ones get empty cells;
    // the table ends at the first line without a pipe, which stays text.
    clearEditor();
    EXPECT_EQ(paste("|x|y|\n|-|-|\n|1|2|3|\n|4|\nafter"), taken());
    nlohmann::json ragged = nlohmann::json::array({
        { { "style", kTBL }, { "head", { cell("x", kTH, "th"), cell("y", kTH, "th") } },
            { "body", { { cell("1", kTD), cell("2", kTD) }, { cell("4", kTD), cell("", kTD) } } } },
        "br", { { "text", "after" } } });
    EXPECT_EQ(editor(), ragged);
    EXPECT_TRUE(js("__caretAfterLastChild('#editor')"));
}

TEST_F(TablePasteWebTest, DrawnTablesLoseTheirBordersAndTextStaysAroundTables) {
    std::string drawn = "┌──────┬──────┐\n"
                        "│ Name │ Size │\n"
                        "├──────┼──────┤\n"
                        "│ a.txt│ 2 kB │\n"
                        "└──────┴──────┘";
    EXPECT_EQ(paste(drawn), taken());
    nlohmann::json table = nlohmann::json::array({ { { "style", kTBL },
        { "head", { cell("Name", kTH, "th"), cell("Size", kTH, "th") } },
        { "body", { { cell("a.txt", kTD), cell("2 kB", kTD) } } } } });
    EXPECT_EQ(editor(), table);

    // Text, table, text: no break before the table, one after it; an empty
    // line between text lines survives as an empty text node.
    clearEditor();
    EXPECT_EQ(paste("Hello,\n\nsee:\n| k | v |\n|---|---|\n| 1 | 2 |\nThanks"), taken());
    nlohmann::json around = nlohmann::json::array({ { { "text", "Hello," } }, "br", { { "text", "" } }, "br",
        { { "text", "see:" } },
        { { "style", kTBL }, { "head", { cell("k", kTH, "th"), cell("v", kTH, "th") } }, { "body", { { cell("1", kTD), cell("2", kTD) } } } },
        "br", { { "text", "Thanks" } } });
    EXPECT_EQ(editor(), around);

    // Border lines alone are no table.
    clearEditor();
    EXPECT_EQ(paste("┌────┐\n└────┘ | not a table"), leftAlone());
    EXPECT_EQ(editor(), nlohmann::json::array());
}

TEST_F(TablePasteWebTest, PastesWithoutPlainTablesAreLeftToThePageAndTheBrowser) {
    // One line with a pipe and no delimiter line.
    EXPECT_EQ(paste("a | b"), leftAlone());
    // A real table on the clipboard: the page's own paste handles it.
    EXPECT_EQ(paste("| a | b |\n|---|---|", "#editor", "<meta charset=utf-8><TABLE\n><tr><td>a</td></tr></TABLE>"), leftAlone());
    // Fields that are not editable areas, even inside one.
    for (const char* selector : { "#field", "#area", "#inner-field" })
        EXPECT_EQ(paste("| a | b |\n|---|---|", selector), leftAlone()) << selector;
    // Text that cannot be edited, while no editable area has the focus.
    js("document.activeElement.blur()");
    EXPECT_EQ(paste("| a | b |\n|---|---|", "#static"), leftAlone());
    // No text at all.
    EXPECT_EQ(js("__paste('#editor', null, '')"), leftAlone());
    EXPECT_EQ(editor(), nlohmann::json::array());
}

TEST_F(TablePasteWebTest, CellTextIsNeverMarkup) {
    js("window.__ran = 0");
    EXPECT_EQ(paste("| <img src=x onerror=\"window.__ran=1\"> | <b>b</b> |\n|---|---|\n| <script>window.__ran=2</script> | &amp; |"),
        taken());
    auto parts = editor();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0]["head"][0]["text"], "<img src=x onerror=\"window.__ran=1\">");
    EXPECT_EQ(parts[0]["head"][1]["text"], "<b>b</b>");
    EXPECT_EQ(parts[0]["body"][0][0]["text"], "<script>window.__ran=2</script>");
    EXPECT_EQ(parts[0]["body"][0][1]["text"], "&amp;");
    EXPECT_EQ(js("document.querySelectorAll('#editor img, #editor script, #editor b').length"), 0);
    EXPECT_EQ(js("window.__ran"), 0);
}

TEST_F(TablePasteWebTest, EveryFrameConvertsOnceAndLargePastesEnd) {
    // A second injection of the script into the same frame adds nothing.
    std::string script(WebScripts::text("bridges/table-paste.js"));
    ASSERT_TRUE(runJS(script).ok);
    EXPECT_EQ(paste("| a |\n|---|"), taken());
    EXPECT_EQ(js("document.querySelectorAll('#editor table').length"), 1);

    // The frame has its own copy of the script.
    EXPECT_EQ(js("__paste('#nested', '| f |\\n| - |', '', document.querySelector('#frame').contentDocument).prevented"), true);
    EXPECT_EQ(js("document.querySelector('#frame').contentDocument.querySelectorAll('#nested table').length"), 1);

    // 5 MB of text with a pipe on every line and no table, and a line of
    // 10,000 pipes: no table, so the page's paste runs; a table of 2,000 rows.
    clearEditor();
    EXPECT_EQ(js("__paste('#editor', 'a | b c d e f g h i j k\\n'.repeat(220000), '')"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', '|'.repeat(10000) + '\\n' + '|-'.repeat(5000) + 'x', '')"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', ' - | '.repeat(10000) + '\\n' + ' :-: | '.repeat(10000) + 'x\\n', '')"), leftAlone());
    EXPECT_EQ(js("__paste('#editor', '| n | sq |\\n|--:|--:|\\n' + Array.from({length: 2000}, (_, i) => `| ${i} | ${i * i} |`).join('\\n'), '')"),
        taken());
    EXPECT_EQ(js("document.querySelector('#editor table').tBodies[0].rows.length"), 2000);
    EXPECT_EQ(js("document.querySelector('#editor table').tBodies[0].rows[1999].cells[1].textContent"), "3996001");
}

} // namespace
} // namespace orvane::test
