// The search bar counts the selected page's matches as one types. The keys
// that open and close it, through the real binary, are PageKeysTest's.
#include "PageTools.h"

#include "ContentView.h"
#include "MainWindow.h"
#include "WidgetTest.h"

namespace orvane::test {
namespace {

using PageToolsTest = WidgetTest;

TEST_F(PageToolsTest, CountsMatchesWhateverTheirCaseAndMarksTheEntryWhenThereAreNone) {
    store->addAccount();
    Preferences preferences;
    SessionPreferences session(preferences);
    MainWindow main(nullptr, *store, *manager, nullptr);
    PageTools tools(main, *store, *manager, session);
    gtk_window_present(main.window());
    auto* page = WEBKIT_WEB_VIEW(main.content().visibleWebView());
    const std::string uri = "http://127.0.0.1/";
    webkit_web_view_load_html(page, "<p>hay needle hay NEEDLE haystack</p>", uri.c_str());
    auto loaded = [&] { return !webkit_web_view_is_loading(page) && webkit_web_view_get_uri(page) == uri; };
    ASSERT_TRUE(waitUntil(loaded));
    ASSERT_TRUE(gtk_widget_activate_action(GTK_WIDGET(main.window()), "page.find", nullptr));

    const std::pair<const char*, std::string> cases[] = { { "needle", "2 matches" }, { "hay", "3 matches" },
        { "needle haystack", "1 match" }, { "thread", "No matches" }, { "", "" } };
    for (auto [text, count] : cases) {
        gtk_editable_set_text(GTK_EDITABLE(tools.searchEntry()), text);
        GtkLabel* label = GTK_LABEL(tools.matchLabel());
        EXPECT_TRUE(waitUntil([&] { return gtk_label_get_text(label) == count; })) << text;
        EXPECT_EQ(gtk_widget_has_css_class(tools.searchEntry(), "error"), count == "No matches") << text;
    }
}

} // namespace
} // namespace orvane::test
