#include "CheckForUpdatesAction.h"
#include "UpdateDialog.h"

#include "WidgetPixels.h"
#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <adwaita.h>
#include <gtest/gtest.h>

namespace orvane {
namespace {

using Kind = UpdaterController::Result::Kind;

const UpdaterController::Configuration kInstalled {"https://orvane.example/appcast.xml", "0.1.0", std::string("12.0")};

std::string feedOffering(const std::string& version) {
    return R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel>
    <title>Orvane</title>
    <item>
      <title>Version )" + version + R"(</title>
      <sparkle:version>)" + version + R"(</sparkle:version>
      <sparkle:releaseNotesLink>https://orvane.example/notes/)" + version + R"(</sparkle:releaseNotesLink>
      <description><![CDATA[<h3>What’s new</h3><ul><li>Account tiles show unread counts up to 99+</li>
        <li>Pasted tables keep their columns</li><li>Faster start with many accounts</li></ul>
        <h3>Fixes</h3><ul><li>Printing from pop-ups prints the pop-up</li></ul>]]></description>
      <link>https://orvane.example/download/)" + version + R"(</link>
    </item>
  </channel>
</rss>)";
}

UpdaterController::Result newerResult() {
    return UpdaterController::evaluate(feedOffering("0.2.0"), kInstalled);
}

class UpdateDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        adw_init();
        parent = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(parent, 900, 640);
        gtk_window_present(parent);
        ASSERT_TRUE(test::waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(parent)); }));
    }
    void TearDown() override {
        for (auto& dialog : dialogs)
            gtk_window_destroy(GTK_WINDOW(dialog.get()));
        dialogs.clear(); // before their parent goes
        gtk_window_destroy(parent);
        test::drainEvents();
    }

    AdwMessageDialog* show(const UpdaterController::Result& result) {
        auto* dialog = UpdateDialog::create(parent, result, [this](const std::string& uri) { opened.push_back(uri); });
        dialogs.emplace_back(dialog);
        gtk_window_present(GTK_WINDOW(dialog));
        EXPECT_TRUE(test::waitUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(dialog)) && gtk_widget_get_width(GTK_WIDGET(dialog)) > 0; }));
        return dialog;
    }

    // Saves what the dialog looks like when ORVANE_TEST_SHOTS names a folder.
    void shoot(AdwMessageDialog* dialog, const std::string& name) {
        // A dialog is first shown at a provisional size: wait until its
        // height holds still over a few frames.
        struct Settling {
            int height = -1;
            int stableFrames = 0;
        } settling;
        guint tick = gtk_widget_add_tick_callback(GTK_WIDGET(dialog), [](GtkWidget* widget, GdkFrameClock*, gpointer data) -> gboolean {
            auto* s = static_cast<Settling*>(data);
            int height = gtk_widget_get_height(widget);
            s->stableFrames = height == s->height ? s->stableFrames + 1 : 0;
            s->height = height;
            return G_SOURCE_CONTINUE;
        }, &settling, nullptr);
        EXPECT_TRUE(test::waitUntil([&] { return settling.stableFrames >= 5; }));
        gtk_widget_remove_tick_callback(GTK_WIDGET(dialog), tick);
        auto rendering = test::renderWidget(GTK_WIDGET(dialog));
        ASSERT_TRUE(rendering);
        EXPECT_GT(rendering.width(), 200);
        if (const char* folder = g_getenv("ORVANE_TEST_SHOTS"))
            rendering.saveTo(std::string(folder) + "/update-" + name + ".png");
    }

    GtkWindow* parent = nullptr;
    std::vector<Ref<AdwMessageDialog>> dialogs; // a response may close a dialog early
    std::vector<std::string> opened;
};

TEST_F(UpdateDialogTest, ANewerReleaseOffersItsDownloadPageAndNotes) {
    auto result = newerResult();
    ASSERT_EQ(result.kind, Kind::UpdateAvailable);
    auto* dialog = show(result);
    EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Orvane 0.2.0 Is Available");
    EXPECT_NE(std::string(adw_message_dialog_get_body(dialog)).find("You have version 0.1.0."), std::string::npos);
    EXPECT_TRUE(gtk_window_get_modal(GTK_WINDOW(dialog)));
    EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), parent);
    EXPECT_STREQ(adw_message_dialog_get_default_response(dialog), UpdateDialog::kDownload);
    EXPECT_EQ(adw_message_dialog_get_response_appearance(dialog, UpdateDialog::kDownload), ADW_RESPONSE_SUGGESTED);
    ASSERT_TRUE(adw_message_dialog_get_extra_child(dialog)) << "the notes are shown";
    shoot(dialog, "newer");

    adw_message_dialog_response(dialog, UpdateDialog::kReleaseNotes);
    adw_message_dialog_response(dialog, UpdateDialog::kDownload);
    adw_message_dialog_response(dialog, UpdateDialog::kClose);
    EXPECT_EQ(opened, (std::vector<std::string> {"https://orvane.example/notes/0.2.0", "https://orvane.example/download/0.2.0"}));
}

TEST_F(UpdateDialogTest, UpToDateAndFailuresOnlyClose) {
    auto* upToDate = show(UpdaterController::evaluate(feedOffering("0.1.0"), kInstalled));
    EXPECT_STREQ(adw_message_dialog_get_heading(upToDate), "Orvane Is Up to Date");
    EXPECT_STREQ(adw_message_dialog_get_body(upToDate), "Version 0.1.0 is the newest version available.");
    EXPECT_FALSE(adw_message_dialog_has_response(upToDate, UpdateDialog::kDownload));
    shoot(upToDate, "same");

    auto* failed = show(UpdaterController::evaluate("<html><body>502 Bad Gateway</body></html>", kInstalled));
    EXPECT_STREQ(adw_message_dialog_get_heading(failed), "Could Not Check for Updates");
    EXPECT_STREQ(adw_message_dialog_get_body(failed), "The update feed could not be read.");
    EXPECT_FALSE(adw_message_dialog_has_response(failed, UpdateDialog::kDownload));
    shoot(failed, "broken");
    EXPECT_TRUE(opened.empty());
}

TEST_F(UpdateDialogTest, OnlyWebAddressesAreEverOpened) {
    auto result = newerResult();
    result.item->downloadURL = "javascript:alert(document.cookie)";
    result.item->releaseNotesURL = "file:///etc/passwd";
    auto* dialog = show(result);
    EXPECT_FALSE(adw_message_dialog_has_response(dialog, UpdateDialog::kDownload));
    EXPECT_FALSE(adw_message_dialog_has_response(dialog, UpdateDialog::kReleaseNotes));
    adw_message_dialog_response(dialog, UpdateDialog::kDownload);
    EXPECT_TRUE(opened.empty());

    for (const char* uri : {"javascript:alert(1)", "file:///etc/passwd", "data:text/html,x", "orvane.example", ""})
        EXPECT_FALSE(UpdateDialog::openInBrowser(uri)) << uri;
}

TEST_F(UpdateDialogTest, TheActionFollowsTheControllerAndShowsTheResult) {
    test::FixtureServer server;
    server.serve("/appcast.xml", R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
        <item><title>0.1.0</title><sparkle:version>0.1.0</sparkle:version><link>https://orvane.example/</link></item>
        </channel></rss>)", "application/rss+xml");
    Ref<GtkApplication> application = adopt(gtk_application_new("app.orvane.Orvane.UpdateTest", G_APPLICATION_NON_UNIQUE));
    ASSERT_TRUE(g_application_register(G_APPLICATION(application.get()), nullptr, nullptr));
    gtk_application_add_window(application.get(), parent);

    UpdaterController unconfigured(UpdaterController::Configuration {"", "0.1.0", std::nullopt});
    {
        CheckForUpdatesAction disabled(application.get(), unconfigured);
        EXPECT_FALSE(g_action_get_enabled(G_ACTION(disabled.action())));
    }
    EXPECT_FALSE(g_action_map_lookup_action(G_ACTION_MAP(application.get()), CheckForUpdatesAction::kName));

    UpdaterController updater(UpdaterController::Configuration {server.uri("/appcast.xml"), "0.1.0", std::nullopt});
    CheckForUpdatesAction action(application.get(), updater);
    GAction* registered = g_action_map_lookup_action(G_ACTION_MAP(application.get()), "check-for-updates");
    ASSERT_EQ(registered, G_ACTION(action.action()));
    EXPECT_TRUE(g_action_get_enabled(registered));

    g_action_group_activate_action(G_ACTION_GROUP(application.get()), "check-for-updates", nullptr);
    EXPECT_FALSE(g_action_get_enabled(registered)) << "disabled while the check runs";
    AdwMessageDialog* shown = nullptr;
    ASSERT_TRUE(test::waitUntil([&] {
        GListModel* toplevels = gtk_window_get_toplevels();
        for (guint i = 0; i < g_list_model_get_n_items(toplevels); ++i) {
            Ref<GObject> window = adopt(G_OBJECT(g_list_model_get_item(toplevels, i)));
            if (ADW_IS_MESSAGE_DIALOG(window.get()))
                shown = ADW_MESSAGE_DIALOG(window.get());
        }
        return shown != nullptr;
    }));
    dialogs.emplace_back(shown);
    EXPECT_STREQ(adw_message_dialog_get_heading(shown), "Orvane Is Up to Date");
    EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(shown)), parent);
    EXPECT_TRUE(g_action_get_enabled(registered));
    gtk_application_remove_window(application.get(), parent);
}

} // namespace
} // namespace orvane
