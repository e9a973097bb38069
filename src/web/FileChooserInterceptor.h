#pragma once

#include <webkit/webkit.h>

#include <functional>

namespace orvane::FileChooserInterceptor {

// Something that may answer a view's file-chooser requests before any
// chooser is shown (files dropped on that view for attachment do). It
// returns true when it answered (or cancelled) the request itself.
using Interceptor = std::function<bool(WebKitFileChooserRequest* request)>;

// Sets the view's interceptor; it lives as long as the view, or until
// replaced. An empty function removes it.
void set(WebKitWebView* view, Interceptor interceptor);

// Asked first by the view's run-file-chooser handler; false when the view has
// none or it did not answer.
bool intercept(WebKitWebView* view, WebKitFileChooserRequest* request);

} // namespace orvane::FileChooserInterceptor
