#include "MessageDialogPresenter.h"
#include "FileChooserInterceptor.h"
#include "ScriptDialogs.h"

#include "ManagerWebFixture.h"

#include <adwaita.h>

namespace orvane::test {
namespace {

// The first visible toplevel of a type, or null.
GtkWindow* toplevelOf(GType type) {
    GListModel* toplevels = gtk_window_get_toplevels();
    for (guint i = 0; i < g_list_model_get_n_items(toplevels); ++i) {
        Ref<GtkWindow> window = adopt(GTK_WINDOW(g_list_model_get_item(toplevels, i)));
        if (G_TYPE_CHECK_INSTANCE_TYPE(window.get(), type) && gtk_widget_get_visible(GTK_WIDGET(window.get())))
            return window.get();
    }
    return nullptr;
}

// The dialog's buttons on screen, in the order they appear (the dialog keeps
// a second, hidden set for its narrow layout).
void collectButtons(GtkWidget* widget, std::vector<GtkButton*>& buttons) {
    for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
        if (GTK_IS_BUTTON(child) && gtk_widget_get_mapped(child))
            buttons.push_back(GTK_BUTTON(child));
        collectButtons(child, buttons);
    }
}
std::vector<std::string> buttonLabels(AdwMessageDialog* dialog) {
    std::vector<GtkButton*> buttons;
    collectButtons(GTK_WIDGET(dialog), buttons);
    std::vector<std::string> labels;
    for (GtkButton* button : buttons)
        labels.push_back(gtk_button_get_label(button) ? gtk_button_get_label(button) : "");
    return labels;
}

class PagePanelsWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        MessageDialogPresenter::install();
        useServices("/files/page.html");
        account = store->addAccount();
        view = show(account);
        ASSERT_TRUE(waitLoaded(view));
    }
    void TearDown() override {
        ScriptDialogs::setPresenter({});
        FileChooserInterceptor::set({});
        ManagerWebFixture::TearDown();
    }

    AdwMessageDialog* waitForMessageDialog() {
        GtkWindow* found = nullptr;
        waitUntil([&] { return (found = toplevelOf(ADW_TYPE_MESSAGE_DIALOG)) != nullptr; });
        return found ? ADW_MESSAGE_DIALOG(found) : nullptr;
    }
    // Presses the button of a response, as the user would, and waits until
    // the dialog is gone.
    void respond(AdwMessageDialog* dialog, const char* response) {
        ASSERT_TRUE(dialog);
        std::string label = adw_message_dialog_get_response_label(dialog, response);
        std::vector<GtkButton*> buttons;
        collectButtons(GTK_WIDGET(dialog), buttons);
        GtkButton* pressed = nullptr;
        for (GtkButton* button : buttons)
            if (gtk_button_get_label(button) && label == gtk_button_get_label(button))
                pressed = button;
        ASSERT_TRUE(pressed) << response;
        GtkWindow* watched = GTK_WINDOW(dialog);
        g_object_add_weak_pointer(G_OBJECT(watched), reinterpret_cast<gpointer*>(&watched));
        g_signal_emit_by_name(pressed, "clicked");
        EXPECT_TRUE(waitUntil([&] { return !watched || !gtk_widget_get_visible(GTK_WIDGET(watched)); }));
        if (watched)
            g_object_remove_weak_pointer(G_OBJECT(watched), reinterpret_cast<gpointer*>(&watched));
    }
    // The page's record of one dialog: before, result, after.
    nlohmann::json record(const std::string& kind) {
        std::string done = "JSON.stringify(__fixtureLog).includes('[\"after\",\"" + kind + "\"]')";
        EXPECT_TRUE(waitForJS(view, done));
        auto log = runJS(view, "(() => { const r = __fixtureLog.filter(e => e[1] === '" + kind
            + "'); __fixtureLog = []; return r; })()");
        return log.value;
    }
    GtkFileChooser* waitForChooser() {
        GtkWindow* found = nullptr;
        waitUntil([&] { return (found = toplevelOf(GTK_TYPE_FILE_CHOOSER_DIALOG)) != nullptr; });
        return found ? GTK_FILE_CHOOSER(found) : nullptr;
    }

    Account account;
    WebKitWebView* view = nullptr;
};

TEST_F(PagePanelsWebTest, AlertConfirmAndPromptAreAnsweredThroughModalDialogs) {
    // alert: "OK" alone, over the account's window, holding the script.
    ASSERT_TRUE(runJS(view, "__fixture.dialog('alert', 'Saved.'); true").ok);
    AdwMessageDialog* dialog = waitForMessageDialog();
    ASSERT_TRUE(dialog);
    EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Saved.");
    EXPECT_FALSE(adw_message_dialog_get_body(dialog) && *adw_message_dialog_get_body(dialog));
    EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "ok"), "OK");
    EXPECT_FALSE(adw_message_dialog_has_response(dialog, "cancel"));
    EXPECT_EQ(buttonLabels(dialog), std::vector<std::string> { "OK" });
    EXPECT_TRUE(gtk_window_get_modal(GTK_WINDOW(dialog)));
    EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), window);
    respond(dialog, "ok");
    EXPECT_EQ(record("alert"), nlohmann::json::parse(R"([["before","alert"],["result","alert","undefined"],["after","alert"]])"));

    // confirm: true exactly for "OK"; Cancel, or closing the dialog, is false.
    ASSERT_TRUE(runJS(view, "__fixture.dialog('confirm', 'Delete the draft?'); true").ok);
    dialog = waitForMessageDialog();
    ASSERT_TRUE(dialog);
    EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Delete the draft?");
    EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "ok"), "OK");
    EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "cancel"), "Cancel");
    EXPECT_STREQ(adw_message_dialog_get_default_response(dialog), "ok");
    // "OK" is the default; the GNOME layout puts it last, at the right.
    EXPECT_EQ(buttonLabels(dialog), (std::vector<std::string> { "Cancel", "OK" }));
    respond(dialog, "ok");
    EXPECT_EQ(record("confirm")[1], nlohmann::json::parse(R"(["result","confirm",true])"));
    ASSERT_TRUE(runJS(view, "__fixture.dialog('confirm', 'Delete the draft?'); true").ok);
    respond(waitForMessageDialog(), "cancel");
    EXPECT_EQ(record("confirm")[1], nlohmann::json::parse(R"(["result","confirm",false])"));
    ASSERT_TRUE(runJS(view, "__fixture.dialog('confirm', 'Close me'); true").ok);
    dialog = waitForMessageDialog();
    ASSERT_TRUE(dialog);
    gtk_window_close(GTK_WINDOW(dialog));
    EXPECT_EQ(record("confirm")[1], nlohmann::json::parse(R"(["result","confirm",false])"));

    // prompt: a 280 x 24 field with the default text; its text for "OK", null for "Cancel".
    ASSERT_TRUE(runJS(view, "__fixture.dialog('prompt', 'Your name?', 'Ada'); true").ok);
    dialog = waitForMessageDialog();
    ASSERT_TRUE(dialog);
    EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Your name?");
    GtkWidget* entry = adw_message_dialog_get_extra_child(dialog);
    ASSERT_TRUE(entry && GTK_IS_ENTRY(entry));
    EXPECT_STREQ(gtk_editable_get_text(GTK_EDITABLE(entry)), "Ada");
    int width = 0, height = 0;
    gtk_widget_get_size_request(entry, &width, &height);
    EXPECT_EQ(width, 280);
    EXPECT_EQ(height, 24);
    gtk_editable_set_text(GTK_EDITABLE(entry), "Ada Lovelace");
    respond(dialog, "ok");
    EXPECT_EQ(record("prompt")[1], nlohmann::json::parse(R"(["result","prompt","Ada Lovelace"])"));
    ASSERT_TRUE(runJS(view, "__fixture.dialog('prompt', 'Your name?', 'Ada'); true").ok);
    respond(waitForMessageDialog(), "cancel");
    EXPECT_EQ(record("prompt")[1], nlohmann::json::parse(R"(["result","prompt",null])"));
    ASSERT_TRUE(runJS(view, "__fixture.dialog('prompt', 'No default'); true").ok);
    dialog = waitForMessageDialog();
    ASSERT_TRUE(dialog);
    EXPECT_STREQ(gtk_editable_get_text(GTK_EDITABLE(adw_message_dialog_get_extra_child(dialog))), "");
    respond(dialog, "ok");
    EXPECT_EQ(record("prompt")[1], nlohmann::json::parse(R"(["result","prompt",""])"));
}

TEST_F(PagePanelsWebTest, ADialogGoesWithItsPopupWindow) {
    WebKitWebView* popup = nullptr;
    auto subscription = manager->observePopups([&](const std::string&, WebKitWebView* opened) { popup = opened; });
    ASSERT_TRUE(runJS(view, "window.open('/files/page.html', 'second'); true").ok);
    ASSERT_TRUE(waitUntil([&] { return popup != nullptr; }));
    expectDeletedAtEnd(popup);
    ASSERT_TRUE(waitLoaded(popup));
    ASSERT_TRUE(runJS(popup, "__fixture.dialog('confirm', 'From the pop-up'); true").ok);
    AdwMessageDialog* dialog = waitForMessageDialog();
    ASSERT_TRUE(dialog);
    GtkWindow* popupWindow = GTK_WINDOW(gtk_widget_get_root(GTK_WIDGET(popup)));
    EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), popupWindow);
    GtkWindow* watched = GTK_WINDOW(dialog);
    g_object_add_weak_pointer(G_OBJECT(watched), reinterpret_cast<gpointer*>(&watched));
    // The user closes the pop-up's window with the question still open.
    gtk_window_close(popupWindow);
    EXPECT_TRUE(waitUntil([&] { return !watched; }));
    if (watched)
        g_object_remove_weak_pointer(G_OBJECT(watched), reinterpret_cast<gpointer*>(&watched));
    ASSERT_TRUE(waitUntil([&] { return manager->popupViews(account.id).empty(); }));
    // The account's page goes on as before.
    EXPECT_EQ(runJS(view, "1 + 1").value, 2);
}

TEST_F(PagePanelsWebTest, FileInputsGetWhatTheChooserChose) {
    std::string folder = makeTempFolder("chosen");
    std::string first = folder + "/first.txt";
    std::string second = folder + "/second.txt";
    ASSERT_TRUE(Files::replaceAtomically(first, "1"));
    ASSERT_TRUE(Files::replaceAtomically(second, "2"));
    auto choose = [&](GtkFileChooser* chooser, const std::string& path) {
        Ref<GFile> file = adopt(g_file_new_for_path(path.c_str()));
        ASSERT_TRUE(gtk_file_chooser_set_file(chooser, file.get(), nullptr));
        // The chooser selects the file once it has read the folder.
        ASSERT_TRUE(waitUntil([&] {
            Ref<GFile> chosen = adopt(gtk_file_chooser_get_file(chooser));
            return chosen && g_file_equal(chosen.get(), file.get());
        }));
        gtk_dialog_response(GTK_DIALOG(chooser), GTK_RESPONSE_ACCEPT);
    };

    // One file: a free-standing chooser for a single file.
    ASSERT_TRUE(runJS(view, "document.getElementById('one').click(); true").ok);
    GtkFileChooser* chooser = waitForChooser();
    ASSERT_TRUE(chooser);
    EXPECT_FALSE(gtk_file_chooser_get_select_multiple(chooser));
    EXPECT_EQ(gtk_file_chooser_get_action(chooser), GTK_FILE_CHOOSER_ACTION_OPEN);
    EXPECT_FALSE(gtk_window_get_transient_for(GTK_WINDOW(chooser)));
    choose(chooser, first);
    ASSERT_TRUE(waitForJS(view, "JSON.stringify(__fixtureLog).includes('[\"files\",\"one\",[\"first.txt\"]]')"));

    // Cancelling answers with nothing: the input keeps no new choice.
    ASSERT_TRUE(runJS(view, "__fixtureLog = []; document.getElementById('many').click(); true").ok);
    chooser = waitForChooser();
    ASSERT_TRUE(chooser);
    EXPECT_TRUE(gtk_file_chooser_get_select_multiple(chooser));
    gtk_dialog_response(GTK_DIALOG(chooser), GTK_RESPONSE_CANCEL);
    ASSERT_TRUE(waitUntil([&] { return !toplevelOf(GTK_TYPE_FILE_CHOOSER_DIALOG); }));
    ASSERT_TRUE(runJS(view, "document.getElementById('many').click(); true").ok);
    chooser = waitForChooser();
    ASSERT_TRUE(chooser);
    choose(chooser, second);
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.length > 0"));
    EXPECT_EQ(runJS(view, "__fixtureLog").value, nlohmann::json::parse(R"([["files","many",["second.txt"]]])"));

    // The interceptor is asked first; when it answers, no chooser opens.
    int asked = 0;
    FileChooserInterceptor::set([&](WebKitWebView* asking, WebKitFileChooserRequest* request) {
        ++asked;
        EXPECT_EQ(asking, view);
        const char* files[] = { first.c_str(), second.c_str(), nullptr };
        webkit_file_chooser_request_select_files(request, files);
        return true;
    });
    ASSERT_TRUE(runJS(view, "__fixtureLog = []; document.getElementById('many').click(); true").ok);
    ASSERT_TRUE(waitForJS(view, "__fixtureLog.length > 0"));
    EXPECT_EQ(runJS(view, "__fixtureLog").value, nlohmann::json::parse(R"([["files","many",["first.txt","second.txt"]]])"));
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(toplevelOf(GTK_TYPE_FILE_CHOOSER_DIALOG));
}

} // namespace
} // namespace orvane::test
