// What an update check shows and what its buttons may open. Reading feeds is
// AppcastTest's, the check itself UpdaterControllerTest's, the command in the
// real binary StartupTest's.
#include "CheckForUpdatesAction.h"
#include "UpdateDialog.h"

#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <adwaita.h>
#include <gtest/gtest.h>

namespace orvane::test {
namespace {

const UpdaterController::Configuration kInstalled { "https://orvane.example/appcast.xml", "0.1.0", "12.0" };

std::string feedOffering(const std::string& version) {
    return R"(<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
      <channel><item><title>Version )" + version + R"(</title>
      <sparkle:version>)" + version + R"(</sparkle:version>
      <sparkle:releaseNotesLink>https://orvane.example/notes/)" + version + R"(</sparkle:releaseNotesLink>
      <description><![CDATA[<ul><li>Account tiles show unread counts up to 99+</li></ul>]]></description>
      <link>https://orvane.example/download/)" + version + "</link></item></channel></rss>";
}

class UpdateDialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        adw_init();
        parent = GTK_WINDOW(gtk_window_new());
        gtk_window_present(parent);
    }
    void TearDown() override {
        for (auto& dialog : dialogs)
            gtk_window_destroy(GTK_WINDOW(dialog.get()));
        dialogs.clear(); // before their parent goes
        gtk_window_destroy(parent);
        drainEvents();
    }
    AdwMessageDialog* show(const UpdaterController::Result& result) {
        auto* dialog
            = UpdateDialog::create(parent, result, [this](const std::string& uri) { opened.push_back(uri); });
        dialogs.emplace_back(dialog);
        gtk_window_present(GTK_WINDOW(dialog));
        EXPECT_TRUE(gtk_window_get_modal(GTK_WINDOW(dialog)));
        EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), parent);
        return dialog;
    }

    GtkWindow* parent = nullptr;
    std::vector<Ref<AdwMessageDialog>> dialogs; // a response may close a dialog early
    std::vector<std::string> opened;
};

TEST_F(UpdateDialogTest, ANewerReleaseOffersItsPagesOthersOnlyClose) {
    auto* newer = show(UpdaterController::evaluate(feedOffering("0.2.0"), kInstalled));
    EXPECT_STREQ(adw_message_dialog_get_default_response(newer), UpdateDialog::kDownload);
    EXPECT_TRUE(adw_message_dialog_get_extra_child(newer)) << "the notes are shown";
    for (const char* response :
        { UpdateDialog::kReleaseNotes, UpdateDialog::kDownload, UpdateDialog::kClose })
        adw_message_dialog_response(newer, response);
    EXPECT_EQ(opened,
        (std::vector<std::string> {
            "https://orvane.example/notes/0.2.0", "https://orvane.example/download/0.2.0" }));

    // Up to date, or a feed that could not be read: nothing to open.
    for (const std::string& feed :
        { feedOffering("0.1.0"), std::string("<html><body>502 Bad Gateway</body></html>") }) {
        auto* dialog = show(UpdaterController::evaluate(feed, kInstalled));
        EXPECT_FALSE(adw_message_dialog_has_response(dialog, UpdateDialog::kDownload));
    }

    // Addresses that are not the web's are never offered nor opened.
    auto result = UpdaterController::evaluate(feedOffering("0.2.0"), kInstalled);
    result.item->downloadURL = "javascript:alert(document.cookie)";
    result.item->releaseNotesURL = "file:///etc/passwd";
    auto* hostile = show(result);
    EXPECT_FALSE(adw_message_dialog_has_response(hostile, UpdateDialog::kDownload));
    EXPECT_FALSE(adw_message_dialog_has_response(hostile, UpdateDialog::kReleaseNotes));
    adw_message_dialog_response(hostile, UpdateDialog::kDownload);
    EXPECT_EQ(opened.size(), 2u);
    for (const char* uri :
        { "javascript:alert(1)", "file:///etc/passwd", "data:text/html,x", "orvane.example", "" })
        EXPECT_FALSE(UpdateDialog::openInBrowser(uri)) << uri;
}

TEST_F(UpdateDialogTest, TheActionFollowsTheControllerAndShowsTheResultOverTheWindow) {
    FixtureServer server;
    server.serve("/appcast.xml", feedOffering("0.1.0"), "application/rss+xml");
    auto application = adopt(gtk_application_new("app.orvane.Orvane.UpdateTest", G_APPLICATION_NON_UNIQUE));
    ASSERT_TRUE(g_application_register(G_APPLICATION(application.get()), nullptr, nullptr));
    gtk_application_add_window(application.get(), parent);
    UpdaterController unconfigured(UpdaterController::Configuration { "", "0.1.0", std::nullopt });
    EXPECT_FALSE(
        g_action_get_enabled(G_ACTION(CheckForUpdatesAction(application.get(), unconfigured).action())));
    EXPECT_FALSE(g_action_map_lookup_action(G_ACTION_MAP(application.get()), CheckForUpdatesAction::kName))
        << "gone with it";
    UpdaterController updater(
        UpdaterController::Configuration { server.uri("/appcast.xml"), "0.1.0", std::nullopt });
    CheckForUpdatesAction action(application.get(), updater);
    GAction* registered = G_ACTION(action.action());
    ASSERT_EQ(g_action_map_lookup_action(G_ACTION_MAP(application.get()), "check-for-updates"), registered);
    g_action_group_activate_action(G_ACTION_GROUP(application.get()), "check-for-updates", nullptr);
    EXPECT_FALSE(g_action_get_enabled(registered)) << "disabled while the check runs";
    AdwMessageDialog* shown = nullptr;
    ASSERT_TRUE(waitUntil([&] {
        GListModel* toplevels = gtk_window_get_toplevels();
        for (guint i = 0; i < g_list_model_get_n_items(toplevels); ++i)
            if (auto window = adopt(G_OBJECT(g_list_model_get_item(toplevels, i)));
                ADW_IS_MESSAGE_DIALOG(window.get()))
                shown = ADW_MESSAGE_DIALOG(window.get());
        return shown != nullptr;
    }));
    dialogs.emplace_back(shown);
    EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(shown)), parent);
    EXPECT_TRUE(g_action_get_enabled(registered));
    gtk_application_remove_window(application.get(), parent);
}

} // namespace
} // namespace orvane::test
