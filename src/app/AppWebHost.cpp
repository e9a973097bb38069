#include "AppWebHost.h"

#include "GRef.h"
#include "DownloadsFolder.h"
#include "MessageDialogPresenter.h"

#include <glib/gi18n-lib.h>

#include <string>

namespace orvane {

namespace {

constexpr int kBusTimeoutMs = 1000;
constexpr guint kFinishedToastSeconds = 10;

bool nameHasOwner(GDBusConnection* bus, const char* name) {
    GVariantPtr reply(g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "NameHasOwner", g_variant_new("(s)", name), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, kBusTimeoutMs, nullptr, nullptr));
    gboolean owned = FALSE;
    if (reply)
        g_variant_get(reply.get(), "(b)", &owned);
    return owned;
}

bool serverAdvertisesBodyMarkup(GDBusConnection* bus) {
    GVariantPtr reply(g_dbus_connection_call_sync(bus, "org.freedesktop.Notifications",
        "/org/freedesktop/Notifications", "org.freedesktop.Notifications", "GetCapabilities", nullptr,
        G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, kBusTimeoutMs, nullptr, nullptr));
    // A server that does not answer is taken to read markup: escaping is the
    // side on which a page's text can never become a link or an image.
    if (!reply)
        return true;
    GVariantIter* capabilities = nullptr;
    g_variant_get(reply.get(), "(as)", &capabilities);
    bool markup = false;
    const char* capability = nullptr;
    while (g_variant_iter_next(capabilities, "&s", &capability))
        markup = markup || g_str_equal(capability, "body-markup");
    g_variant_iter_free(capabilities);
    return markup;
}

// Whether the bodies Orvane sends are read as markup. GLib picks its
// notification backend once per process, at the first notification:
// GNOTIFICATION_BACKEND when set, else the portal inside a sandbox, else
// org.gtk.Notifications when that name is owned, else
// org.freedesktop.Notifications. The first three take plain text; only the
// last passes the body on as it is, and its server reads markup in it when
// it has the "body-markup" capability. Decided once, right before the first
// notification, the way GLib decides.
bool decideBodyIsMarkup(GApplication* app) {
    GDBusConnection* bus = g_application_get_dbus_connection(app);
    std::string backend = g_getenv("GNOTIFICATION_BACKEND") ? g_getenv("GNOTIFICATION_BACKEND") : "";
    if (backend != "gtk" && backend != "freedesktop" && backend != "portal") {
        const char* portal = g_getenv("GTK_USE_PORTAL");
        if (g_file_test("/.flatpak-info", G_FILE_TEST_EXISTS) || (portal && portal[0] == '1'))
            backend = "portal";
        else if (bus && nameHasOwner(bus, "org.gtk.Notifications"))
            backend = "gtk";
        else
            backend = "freedesktop";
    }
    return backend == "freedesktop" && (!bus || serverAdvertisesBodyMarkup(bus));
}


// "“report.pdf” downloaded", with "Show in Files" beside it and "Open" as
// the toast's button (the window's downloads.* actions).
AdwToast* finishedToast(const std::string& name, const std::string& path, bool saved) {
    AdwToast* toast = adw_toast_new("");
    GtkWidget* title = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    GCharPtr text(g_strdup_printf(saved ? _("“%s” saved") : _("“%s” downloaded"), name.c_str()));
    GtkWidget* label = gtk_label_new(text.get());
    gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_MIDDLE);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 40);
    gtk_widget_add_css_class(label, "heading");
    GtkWidget* show = gtk_button_new_with_label(_("Show in Files"));
    gtk_widget_set_valign(show, GTK_ALIGN_CENTER);
    gtk_actionable_set_action_name(GTK_ACTIONABLE(show), "downloads.show-in-files");
    gtk_actionable_set_action_target_value(GTK_ACTIONABLE(show), g_variant_new_string(path.c_str()));
    gtk_box_append(GTK_BOX(title), label);
    gtk_box_append(GTK_BOX(title), show);
    adw_toast_set_custom_title(toast, title);
    adw_toast_set_button_label(toast, _("Open"));
    adw_toast_set_action_name(toast, "downloads.open");
    adw_toast_set_action_target_value(toast, g_variant_new_string(path.c_str()));
    adw_toast_set_timeout(toast, kFinishedToastSeconds);
    return toast;
}

// A toast's title is markup: the text is escaped to show as written.
AdwToast* textToast(const std::string& text) {
    GCharPtr escaped(g_markup_escape_text(text.c_str(), -1));
    return adw_toast_new(escaped.get());
}

std::string failureText(WebHost::DownloadEnd end, const std::string& name) {
    const char* format = nullptr;
    switch (end) {
    case WebHost::DownloadEnd::NetworkFailed:
        format = _("Could not download “%s”: the connection broke off");
        break;
    case WebHost::DownloadEnd::WriteFailed:
        format = _("Could not save “%s”: the file could not be written (is the disk full?)");
        break;
    case WebHost::DownloadEnd::NoPlace:
        format = DownloadsFolder::path() ? _("Could not save “%s”: no free name for it in the Downloads folder")
                                         : _("Could not save “%s”: there is no Downloads folder");
        break;
    case WebHost::DownloadEnd::Finished:
    case WebHost::DownloadEnd::Cancelled:
        return "";
    }
    return GCharPtr(g_strdup_printf(format, name.c_str())).get();
}

} // namespace

void AppWebHost::downloadStarted(WebKitDownload* download, WebKitWebView*) {
    m_downloads.started(download);
}

void AppWebHost::downloadEnded(WebKitDownload* download, DownloadEnd end, const std::string& path) {
    auto item = m_downloads.ended(download, path);
    if (!item || !m_showToast)
        return;
    if (end == DownloadEnd::Finished && !path.empty())
        m_showToast(finishedToast(item->name, path, false));
    else if (std::string text = failureText(end, item->name); !text.empty())
        m_showToast(textToast(text));
}

void AppWebHost::fileSaved(const std::string& path, WebKitWebView*) {
    m_downloads.saved(path);
    if (m_showToast)
        m_showToast(finishedToast(GCharPtr(g_filename_display_basename(path.c_str())).get(), path, true));
}

void AppWebHost::reportFailure(const std::string& message, WebKitWebView*) {
    if (m_showToast)
        m_showToast(textToast(message));
}

void AppWebHost::openInBrowser(const std::string& address, WebKitWebView* from) {
    // Launched for the window the link left, so that the desktop may bring
    // the browser to the front (and, in a sandbox, the portal knows whose
    // request it is).
    GtkRoot* root = from ? gtk_widget_get_root(GTK_WIDGET(from)) : nullptr;
    GtkWindow* parent = GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
    gtk_show_uri_full(parent, address.c_str(), GDK_CURRENT_TIME, nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer) {
            GError* error = nullptr;
            if (!gtk_show_uri_full_finish(GTK_WINDOW(source), result, &error)) {
                g_warning("Could not open a link in the browser: %s", error->message);
                g_error_free(error);
            }
        },
        nullptr);
}

void AppWebHost::openMailLink(const std::string& address) {
    // Routed as if the desktop had opened the link with Orvane.
    Ref<GFile> file = adopt(g_file_new_for_uri(address.c_str()));
    GFile* files[] = { file.get() };
    g_application_open(G_APPLICATION(m_application), files, 1, "");
}

bool AppWebHost::ask(GtkWindow* parent, const ScriptDialogs::Request& request, ScriptDialogs::Completion completion) {
    MessageDialogPresenter::present(parent, request, std::move(completion));
    return true;
}

GtkWindow* AppWebHost::newWindow() {
    auto* window = GTK_WINDOW(gtk_window_new());
    // A window of the application, so its keyboard shortcuts (paste as plain
    // text, print, quit…) work in pop-ups as in the main window.
    gtk_window_set_application(window, m_application);
    return window;
}

bool AppWebHost::sendNotification(const std::string& id, GNotification* notification) {
    auto* app = G_APPLICATION(m_application);
    if (!g_application_get_is_registered(app) || g_application_get_is_remote(app))
        return false;
    g_application_send_notification(app, id.c_str(), notification);
    return true;
}

bool AppWebHost::notificationBodyIsMarkup() {
    if (!m_bodyIsMarkup)
        m_bodyIsMarkup = decideBodyIsMarkup(G_APPLICATION(m_application));
    return *m_bodyIsMarkup;
}

} // namespace orvane
