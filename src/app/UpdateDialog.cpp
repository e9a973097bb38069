#include "UpdateDialog.h"

#include "AppResources.h"
#include "GRef.h"
#include "ExternalLink.h"
#include "HeapBox.h"

#include <glib/gi18n-lib.h>

#include <memory>

namespace orvane {

namespace {

// What the buttons open, kept with the dialog.
struct Links {
    std::string download;
    std::string releaseNotes;
    UpdateDialog::Opener open;
};

void onResponse(AdwMessageDialog*, const char* response, gpointer data) {
    auto* links = static_cast<Links*>(data);
    if (!g_strcmp0(response, UpdateDialog::kDownload) && !links->download.empty())
        links->open(links->download);
    else if (!g_strcmp0(response, UpdateDialog::kReleaseNotes) && !links->releaseNotes.empty())
        links->open(links->releaseNotes);
}

void describeNewer(AdwMessageDialog* dialog, GtkBuilder* builder, const UpdaterController::Result& result, Links& links) {
    const Appcast::Item& item = *result.item;
    GCharPtr heading(g_strdup_printf(_("Orvane %s Is Available"), item.displayVersion.c_str()));
    GCharPtr body(g_strdup_printf(_("You have version %s. Install the new version with your package manager "
                                    "or Flatpak, or get it from its download page."),
        result.currentVersion.c_str()));
    adw_message_dialog_set_heading(dialog, heading.get());
    adw_message_dialog_set_body(dialog, body.get());
    if (!result.notes.empty()) {
        gtk_label_set_text(GTK_LABEL(gtk_builder_get_object(builder, "notes_label")), result.notes.c_str());
        adw_message_dialog_set_extra_child(dialog, GTK_WIDGET(gtk_builder_get_object(builder, "notes")));
    }

    if (Appcast::isWebAddress(item.downloadURL))
        links.download = item.downloadURL;
    if (Appcast::isWebAddress(item.releaseNotesURL))
        links.releaseNotes = item.releaseNotesURL;

    adw_message_dialog_add_response(dialog, UpdateDialog::kClose, _("_Not Now"));
    if (!links.releaseNotes.empty())
        adw_message_dialog_add_response(dialog, UpdateDialog::kReleaseNotes, _("_Release Notes"));
    if (!links.download.empty()) {
        adw_message_dialog_add_response(dialog, UpdateDialog::kDownload, _("_Open Download Page"));
        adw_message_dialog_set_response_appearance(dialog, UpdateDialog::kDownload, ADW_RESPONSE_SUGGESTED);
        adw_message_dialog_set_default_response(dialog, UpdateDialog::kDownload);
    }
}

void describeUpToDate(AdwMessageDialog* dialog, const UpdaterController::Result& result) {
    GCharPtr body(g_strdup_printf(_("Version %s is the newest version available."), result.currentVersion.c_str()));
    adw_message_dialog_set_heading(dialog, _("Orvane Is Up to Date"));
    adw_message_dialog_set_body(dialog, body.get());
    adw_message_dialog_add_response(dialog, UpdateDialog::kClose, _("_OK"));
}

void describeFailure(AdwMessageDialog* dialog, const UpdaterController::Result& result) {
    adw_message_dialog_set_heading(dialog, _("Could Not Check for Updates"));
    adw_message_dialog_set_body(dialog, result.error.empty() ? _("The update feed could not be read.") : result.error.c_str());
    adw_message_dialog_add_response(dialog, UpdateDialog::kClose, _("_OK"));
}

} // namespace

AdwMessageDialog* UpdateDialog::create(GtkWindow* parent, const UpdaterController::Result& result, Opener open) {
    adw_init();
    ensureUIResources();
    auto builder = adopt(gtk_builder_new_from_resource("/app/orvane/Orvane/app/UpdateDialog.ui"));
    auto* dialog = ADW_MESSAGE_DIALOG(gtk_builder_get_object(builder.get(), "dialog"));
    gtk_window_set_transient_for(GTK_WINDOW(dialog), parent);
    auto* links = HeapBox::make<Links>(Links {{}, {}, open ? std::move(open) : Opener(openInBrowser)});

    using Kind = UpdaterController::Result::Kind;
    if (result.kind == Kind::UpdateAvailable && result.item)
        describeNewer(dialog, builder.get(), result, *links);
    else if (result.kind == Kind::UpToDate)
        describeUpToDate(dialog, result);
    else
        describeFailure(dialog, result);
    if (!adw_message_dialog_get_default_response(dialog))
        adw_message_dialog_set_default_response(dialog, kClose);

    g_object_set_data_full(G_OBJECT(dialog), "orvane-update-links", links,
        HeapBox::free<Links>);
    g_signal_connect(dialog, "response", G_CALLBACK(onResponse), links);
    return dialog;
}

AdwMessageDialog* UpdateDialog::present(GtkWindow* parent, const UpdaterController::Result& result) {
    AdwMessageDialog* dialog = create(parent, result);
    gtk_window_present(GTK_WINDOW(dialog));
    return dialog;
}

void UpdateDialog::checkAndPresent(UpdaterController& updater, GtkWindow* parent) {
    // Cleared when the callback goes away, called or not.
    std::shared_ptr<GWeakRef> weakParent(HeapBox::make<GWeakRef>(), [](GWeakRef* ref) {
        g_weak_ref_clear(ref);
        HeapBox::free<GWeakRef>(ref);
    });
    g_weak_ref_init(weakParent.get(), parent);
    bool hasParent = parent != nullptr;
    updater.checkForUpdates([weakParent, hasParent](const UpdaterController::Result& result) {
        Ref<GtkWindow> window = adopt(static_cast<GtkWindow*>(g_weak_ref_get(weakParent.get())));
        if (!hasParent)
            present(nullptr, result);
        else if (window && gtk_widget_get_visible(GTK_WIDGET(window.get())))
            present(window.get(), result);
    });
}

bool UpdateDialog::openInBrowser(const std::string& uri) {
    // The browser gets exactly the address that was checked.
    ExternalLink link = externalLinkFor(uri);
    if (link.action != ExternalLink::Action::Browser)
        return false;
    Ref<GdkAppLaunchContext> context;
    if (GdkDisplay* display = gdk_display_get_default())
        context = adopt(gdk_display_get_app_launch_context(display));
    g_app_info_launch_default_for_uri_async(link.address.c_str(),
        context ? G_APP_LAUNCH_CONTEXT(context.get()) : nullptr, nullptr, nullptr, nullptr);
    return true;
}

} // namespace orvane
