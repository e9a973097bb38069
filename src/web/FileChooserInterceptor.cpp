#include "FileChooserInterceptor.h"
#include "HeapBox.h"

namespace orvane::FileChooserInterceptor {

static constexpr const char* kDataKey = "orvane-file-chooser-interceptor";

void set(WebKitWebView* view, Interceptor interceptor) {
    if (!view)
        return;
    if (!interceptor) {
        g_object_set_data(G_OBJECT(view), kDataKey, nullptr);
        return;
    }
    g_object_set_data_full(G_OBJECT(view), kDataKey, HeapBox::make<Interceptor>(std::move(interceptor)),
        HeapBox::free<Interceptor>);
}

bool intercept(WebKitWebView* view, WebKitFileChooserRequest* request) {
    auto* interceptor = view ? static_cast<Interceptor*>(g_object_get_data(G_OBJECT(view), kDataKey)) : nullptr;
    // A copy: the interceptor may replace itself while it runs.
    return interceptor && Interceptor(*interceptor)(request);
}

} // namespace orvane::FileChooserInterceptor
