#include "PageProbe.h"

#include "GRef.h"
#include "HeapBox.h"

#include <cstring>
#include <memory>

namespace orvane {

namespace {

std::optional<std::string> textOf(JSCValue* value) {
    if (!value || !jsc_value_is_string(value))
        return std::nullopt;
    GCharPtr text(jsc_value_to_string(value));
    if (!text)
        return std::nullopt;
    size_t length = strnlen(text.get(), PageProbe::kMaxTextBytes + 1);
    if (length == 0 || length > PageProbe::kMaxTextBytes)
        return std::nullopt;
    return std::string(text.get(), length);
}

} // namespace

void PageProbe::photoURL(WebKitWebView* view, const std::string& body,
    const std::map<std::string, std::string>& arguments, Completion completion, GCancellable* cancellable,
    const std::string& sourceURI) {
    if (!view || body.empty()) {
        if (completion)
            completion(std::nullopt);
        return;
    }
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    for (const auto& [name, value] : arguments) {
        // A GVariant string must be valid UTF-8 without NULs.
        GCharPtr text(g_utf8_make_valid(value.c_str(), -1));
        g_variant_builder_add(&builder, "{sv}", name.c_str(), g_variant_new_string(text.get()));
    }

    // WebKit's task keeps the view alive until the callback has run.
    auto* pending = HeapBox::make<Completion>(std::move(completion));
    webkit_web_view_call_async_javascript_function(view, body.c_str(), static_cast<gssize>(body.size()),
        g_variant_builder_end(&builder), nullptr, sourceURI.empty() ? nullptr : sourceURI.c_str(), cancellable,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            auto completion = HeapBox::take<Completion>(data);
            GErrorPtr error;
            auto value = adopt(webkit_web_view_call_async_javascript_function_finish(WEBKIT_WEB_VIEW(source), result,
                GErrorOut(error)));
            if (*completion)
                (*completion)(error ? std::nullopt : textOf(value.get()));
        },
        pending);
}

} // namespace orvane
