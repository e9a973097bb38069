#pragma once

#include "base/GRef.h"
#include "web/WebViewManager.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <vector>

namespace orvane {

// Prints web views, for the page's own window.print() and for the print
// command (WebViewManager::printSelected). print-override.js makes
// window.print() post the page's stamp to orvanePrint, so the exact view that
// asked is printed, a pop-up's own page included.
//
// Every print shows the print dialog, parented to the view's window, with one
// GtkPrintSettings for the whole run that keeps what the user chose last.
// With ORVANE_PRINT_TO_PDF=/absolute/path.pdf set, every print goes straight
// into that file instead, without a dialog.
//
// Pop-up windows are not the application's, so its Ctrl+P does not reach
// them: each pop-up view gets a Ctrl+P of its own that prints the pop-up,
// which is what the print command does while a pop-up is the active window.
//
// One per run (shared()). Main thread only.
class PrintSupport {
public:
    static PrintSupport& shared();

    // Receives orvanePrint for the manager's views from now on, and gives
    // its pop-ups their Ctrl+P.
    void serve(WebViewManager& manager);

    // Prints the view's page. Does nothing while a print dialog is open.
    void print(WebKitWebView* view);

    GtkPrintSettings* settings() const { return m_settings.get(); }

    PrintSupport(const PrintSupport&) = delete;
    PrintSupport& operator=(const PrintSupport&) = delete;

private:
    PrintSupport();

    static void addShortcut(WebKitWebView* popup);
    bool printToFile(WebKitWebView* view, const char* path);
    void printWithDialog(WebKitWebView* view);

    // Owned references
    Ref<GtkPrintSettings> m_settings;
    std::vector<WebViewManager::PopupObservers::Subscription> m_popupSubscriptions;
    bool m_dialogOpen = false;
};

} // namespace orvane
