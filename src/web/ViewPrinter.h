#pragma once

#include <webkit/webkit.h>

namespace orvane {

// Prints a web view with one print settings object shared by the whole run,
// through the print dialog; with ORVANE_PRINT_TO_PDF=/path/file.pdf set,
// straight into that file without a dialog.
struct ViewPrinter {
    static void print(WebKitWebView* view);
};

} // namespace orvane
