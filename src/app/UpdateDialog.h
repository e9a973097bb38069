#pragma once

#include "UpdaterController.h"

#include <adwaita.h>

#include <functional>
#include <string>

namespace orvane {

// Shows the outcome of "Check for Updates…" as a modal AdwMessageDialog: a
// newer release with its notes and a button that opens its download page in
// the browser (Orvane does not install it: the package manager or Flatpak
// does), "up to date", or why the check failed. Only http and https
// addresses are ever opened.
class UpdateDialog {
public:
    // Opens an address in the user's browser.
    using Opener = std::function<void(const std::string& uri)>;

    // Runs a check on the controller and presents its result over `parent`
    // (held weakly: a window closed in the meantime gets no dialog; no parent
    // at all gives a dialog of its own). Does nothing while
    // updater.canCheckForUpdates() is false.
    static void checkAndPresent(UpdaterController& updater, GtkWindow* parent);

    // Builds and presents the dialog for a result.
    static AdwMessageDialog* present(GtkWindow* parent, const UpdaterController::Result& result);
    // Builds the dialog without presenting it; `open` receives the addresses
    // its buttons open.
    static AdwMessageDialog* create(GtkWindow* parent, const UpdaterController::Result& result, Opener open = openInBrowser);

    // g_app_info_launch_default_for_uri for http(s) addresses (the address
    // externalLinkFor checked); false (and nothing opened) for anything else.
    static bool openInBrowser(const std::string& uri);

    // Response ids.
    static constexpr const char* kDownload = "download";
    static constexpr const char* kReleaseNotes = "notes";
    static constexpr const char* kClose = "close";
};

} // namespace orvane
