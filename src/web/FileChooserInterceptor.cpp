#include "FileChooserInterceptor.h"

namespace orvane::FileChooserInterceptor {

static Interceptor& current() {
    static Interceptor interceptor;
    return interceptor;
}

void set(Interceptor interceptor) { current() = std::move(interceptor); }

bool intercept(WebKitWebView* view, WebKitFileChooserRequest* request) {
    auto& interceptor = current();
    return interceptor && interceptor(view, request);
}

} // namespace orvane::FileChooserInterceptor
