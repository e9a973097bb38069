#pragma once

#include <webkit/webkit.h>

#include <functional>

namespace orvane::FileChooserInterceptor {

// Something that may answer a page's file-chooser request before any chooser
// is shown (files dropped on the window for attachment do). It returns true
// when it answered (or cancelled) the request itself.
using Interceptor = std::function<bool(WebKitWebView* view, WebKitFileChooserRequest* request)>;

// One per process; an empty function removes it.
void set(Interceptor interceptor);

// Asked first by the run-file-chooser handler; false when nothing is set or
// the interceptor did not answer.
bool intercept(WebKitWebView* view, WebKitFileChooserRequest* request);

} // namespace orvane::FileChooserInterceptor
