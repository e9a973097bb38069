#pragma once

#include "GRef.h"
#include "PrintGate.h"
#include "WebViewManager.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

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
// One per WebViewManager, which owns it. Main thread only.
class PrintSupport {
public:
    PrintSupport();

    // Receives orvanePrint for the manager's views from now on.
    void serve(WebViewManager& manager);

    // Who asks for a print: a page's window.print() or the user's command.
    enum class Asker { Page, User };
    // Prints the view's page. Does nothing while a print dialog is open, nor
    // for a page's request in the seconds after one closed (PrintGate).
    void print(WebKitWebView* view, Asker asker = Asker::Page);

    GtkPrintSettings* settings() const { return m_settings.get(); }

    PrintSupport(const PrintSupport&) = delete;
    PrintSupport& operator=(const PrintSupport&) = delete;

private:
    bool printToFile(WebKitWebView* view, const char* path);
    void printWithDialog(WebKitWebView* view);

    // Owned references
    Ref<GtkPrintSettings> m_settings;
    PrintGate m_gate;
};

} // namespace orvane
