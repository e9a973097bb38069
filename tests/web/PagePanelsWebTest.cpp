// The pages' script dialogs and file choosers, answered through the real
// libadwaita dialogs and GTK file chooser.
#include "MessageDialogPresenter.h"
#include "ScriptDialogs.h"

#include "ManagerWebFixture.h"

#include <adwaita.h>

namespace orvane::test {
namespace {

class PagePanelsWebTest : public ManagerWebFixture {
protected:
    static GtkWindow* waitForToplevel(GType type) {
        waitUntil([&] { return !toplevels(type).empty(); });
        return toplevels(type).empty() ? nullptr : toplevels(type).front();
    }
    // The page's log since the last call, once it holds `until`.
    nlohmann::json logUntil(const std::string& until) {
        EXPECT_TRUE(waitForJS(view, "JSON.stringify(__fixtureLog).includes(" + jsonLiteral(until) + ")")) << until;
        return js(view, "(() => { const log = __fixtureLog; __fixtureLog = []; return log; })()");
    }
};

TEST_F(PagePanelsWebTest, ScriptDialogsAndFileChoosersAnswerThePage) {
    host.onAsk = MessageDialogPresenter::present;
    useServices("/files/page.html");
    view = showNewAccount();
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.length > 0")); // the page's own "blob-ready"
    run(view, "__fixtureLog = []");
    // Each dialog: the response (none: the dialog closed), the prompt's text, what the page got.
    const std::tuple<std::string, std::string, std::optional<std::string>, const char*, std::string, nlohmann::json> cases[] = {
        { "alert", "Saved.", std::nullopt, ScriptDialogs::kOK, "", "undefined" },
        { "confirm", "Delete the draft?", std::nullopt, ScriptDialogs::kOK, "", true },
        { "confirm", "Delete the draft?", std::nullopt, ScriptDialogs::kCancel, "", false },
        { "confirm", "Close me", std::nullopt, nullptr, "", false },
        { "prompt", "Your name?", "Ada", ScriptDialogs::kOK, "Ada Lovelace", "Ada Lovelace" },
        { "prompt", "Your name?", "Ada", ScriptDialogs::kCancel, "", nullptr },
        { "prompt", "No default", std::nullopt, ScriptDialogs::kOK, "", "" },
    };
    for (const auto& [kind, message, defaultText, response, typed, result] : cases) {
        SCOPED_TRACE(kind + " " + message);
        run(view, "__fixture.dialog(" + jsonLiteral(kind) + ", " + jsonLiteral(message)
            + (defaultText ? ", " + jsonLiteral(*defaultText) : "") + ")");
        auto* dialog = ADW_MESSAGE_DIALOG(waitForToplevel(ADW_TYPE_MESSAGE_DIALOG));
        ASSERT_TRUE(dialog);
        EXPECT_EQ(adw_message_dialog_get_heading(dialog), message);
        EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), window);
        EXPECT_EQ(adw_message_dialog_has_response(dialog, ScriptDialogs::kCancel), kind != "alert");
        GtkWidget* entry = adw_message_dialog_get_extra_child(dialog);
        ASSERT_EQ(bool(entry), kind == "prompt");
        if (entry) {
            EXPECT_EQ(gtk_editable_get_text(GTK_EDITABLE(entry)), defaultText.value_or(""));
            if (!typed.empty())
                gtk_editable_set_text(GTK_EDITABLE(entry), typed.c_str());
        }
        // A click on a button gives its response and closes the dialog (as here); closing alone gives none.
        if (response)
            adw_message_dialog_response(dialog, response);
        gtk_window_close(GTK_WINDOW(dialog));
        EXPECT_EQ(logUntil("[\"after\""), nlohmann::json({ { "before", kind }, { "result", kind, result }, { "after", kind } }));
        EXPECT_TRUE(waitUntil([&] { return toplevels(ADW_TYPE_MESSAGE_DIALOG).empty(); }));
    }

    // A pop-up's question goes over the pop-up's window, and with it: the
    // user closes the window with the question still open.
    WebKitWebView* popup = nextPopup(view, "window.open('/files/page.html', 'second')");
    ASSERT_TRUE(popup && waitLoaded(popup));
    run(popup, "__fixture.dialog('confirm', 'From the pop-up')");
    GtkWindow* dialog = waitForToplevel(ADW_TYPE_MESSAGE_DIALOG);
    ASSERT_TRUE(dialog);
    expectDeletedAtEnd(dialog);
    GtkWindow* popupWindow = GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup)));
    EXPECT_EQ(gtk_window_get_transient_for(dialog), popupWindow);
    gtk_window_close(popupWindow);
    ASSERT_TRUE(waitUntil([&] {
        return manager->popupViews(*manager->accountID(view)).empty()
            && toplevels(ADW_TYPE_MESSAGE_DIALOG).empty();
    }));
    EXPECT_EQ(js(view, "1 + 1"), 2) << "the account's page goes on";

    // File inputs get what the chooser chose.
    std::string folder = makeTempFolder("chosen");
    for (const char* name : { "first.txt", "second.txt" })
        ASSERT_TRUE(Files::replaceAtomically(folder + "/" + name, name));
    // Opens the input's chooser and answers it with a file, or cancels.
    auto choose = [&](const char* input, bool multiple, const char* name) {
        run(view, std::string("document.getElementById('") + input + "').click()");
        GtkWindow* panel = waitForToplevel(GTK_TYPE_FILE_CHOOSER_DIALOG);
        ASSERT_TRUE(panel);
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(panel);
        EXPECT_EQ(bool(gtk_file_chooser_get_select_multiple(chooser)), multiple);
        EXPECT_EQ(gtk_window_get_transient_for(panel), window) << "kept above the window showing the page";
        EXPECT_TRUE(gtk_window_get_modal(panel));
        if (name) {
            Ref<GFile> file = adopt(g_file_new_for_path((folder + "/" + name).c_str()));
            ASSERT_TRUE(gtk_file_chooser_set_file(chooser, file.get(), nullptr));
            // The chooser selects the file once it has read the folder.
            ASSERT_TRUE(waitUntil([&] {
                Ref<GFile> chosen = adopt(gtk_file_chooser_get_file(chooser));
                return chosen && g_file_equal(chosen.get(), file.get());
            }));
        }
        gtk_dialog_response(GTK_DIALOG(chooser), name ? GTK_RESPONSE_ACCEPT : GTK_RESPONSE_CANCEL);
        ASSERT_TRUE(waitUntil([&] { return toplevels(GTK_TYPE_FILE_CHOOSER_DIALOG).empty(); }));
    };
    choose("one", false, "first.txt");
    EXPECT_EQ(logUntil("[\"files\""), nlohmann::json::parse(R"([["files","one",["first.txt"]]])"));
    // Cancelling answers with nothing: the input keeps no new choice.
    choose("many", true, nullptr);
    choose("many", true, "second.txt");
    EXPECT_EQ(logUntil("[\"files\""), nlohmann::json::parse(R"([["files","many",["second.txt"]]])"));
}

} // namespace
} // namespace orvane::test
