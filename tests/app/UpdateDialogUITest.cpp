// What an update check shows and what its buttons may open. Reading feeds is
// AppcastTest's, the check itself UpdaterControllerTest's, the command in the
// real binary StartupTest's.
#include "UpdateDialog.h"

#include "support/Wait.h"

#include <gtest/gtest.h>

namespace orvane::test {
namespace {

using Result = UpdaterController::Result;

TEST(UpdateDialogTest, ANewerReleaseOffersItsWebPagesOthersOnlyClose) {
    adw_init();
    const Result newer { .kind = Result::Kind::UpdateAvailable, .currentVersion = "0.1.0",
        .item = Appcast::Item { .version = "0.2.0", .downloadURL = "https://orvane.example/download",
            .releaseNotesURL = "https://orvane.example/notes" },
        .notes = "Account tiles show unread counts up to 99+" };
    // Addresses that are not the web's are never offered nor opened.
    Result hostile = newer;
    hostile.item->downloadURL = "javascript:alert(document.cookie)";
    hostile.item->releaseNotesURL = "file:///etc/passwd";
    const std::pair<Result, bool> cases[] = { { newer, true },
        { { .kind = Result::Kind::UpToDate, .currentVersion = "0.1.0" }, false }, { Result {}, false },
        { hostile, false } };

    GtkWindow* parent = GTK_WINDOW(gtk_window_new());
    gtk_window_present(parent);
    std::vector<std::string> opened;
    std::vector<Ref<AdwMessageDialog>> dialogs; // a response closes a dialog
    auto open = [&](const std::string& uri) { opened.push_back(uri); };
    for (const auto& [result, offers] : cases) {
        auto* dialog = UpdateDialog::create(parent, result, open);
        dialogs.emplace_back(dialog);
        GtkWindow* shown = GTK_WINDOW(dialog);
        EXPECT_TRUE(gtk_window_get_modal(shown) && gtk_window_get_transient_for(shown) == parent);
        gtk_window_present(shown);
        EXPECT_STREQ(adw_message_dialog_get_default_response(dialog),
            offers ? UpdateDialog::kDownload : UpdateDialog::kClose);
        EXPECT_EQ(bool(adw_message_dialog_has_response(dialog, UpdateDialog::kReleaseNotes)), offers);
        for (const char* response :
            { UpdateDialog::kReleaseNotes, UpdateDialog::kDownload, UpdateDialog::kClose })
            adw_message_dialog_response(dialog, response);
    }
    EXPECT_TRUE(adw_message_dialog_get_extra_child(dialogs[0].get())) << "the notes are shown";
    EXPECT_EQ(opened,
        (std::vector<std::string> { "https://orvane.example/notes", "https://orvane.example/download" }));
    for (const char* uri : { "javascript:alert(1)", "file:///etc/passwd", "orvane.example" })
        EXPECT_FALSE(UpdateDialog::openInBrowser(uri)) << uri;

    for (auto& dialog : dialogs)
        gtk_window_destroy(GTK_WINDOW(dialog.get()));
    dialogs.clear(); // before their parent goes
    gtk_window_destroy(parent);
    drainEvents();
}

} // namespace
} // namespace orvane::test
