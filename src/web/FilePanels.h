#pragma once

#include <webkit/webkit.h>

namespace orvane::FilePanels {

// Answers a page's request for files (run-file-chooser). The
// FileChooserInterceptor is asked first (files dropped on the window for
// attachment answer at once); otherwise a GtkFileChooserNative opens, modal
// over the window that shows the page, for one file or several as the page
// asks. Choosing answers with the chosen files; cancelling answers with none.
// Always true: the request is handled.
bool run(WebKitWebView* view, WebKitFileChooserRequest* request);

} // namespace orvane::FilePanels
