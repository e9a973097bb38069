#include "support/WebViewTest.h"

#include "support/TestEnvironment.h"

namespace orvane::test {

namespace {

using Finish = JSCValue* (*)(WebKitWebView*, GAsyncResult*, GError**);

// Waits for an asynchronous script call that `start` begins with the
// callback and data it is given.
JSResult waitForScript(const std::function<void(GAsyncReadyCallback, gpointer)>& start, Finish finish,
    std::chrono::milliseconds timeout) {
    struct Pending {
        Finish finish;
        bool done = false;
        JSResult result;
    };
    auto pending = std::make_shared<Pending>(Pending { finish });
    start(+[](GObject* source, GAsyncResult* res, gpointer data) {
        std::unique_ptr<std::shared_ptr<Pending>> p(static_cast<std::shared_ptr<Pending>*>(data));
        GErrorPtr error;
        Ref<JSCValue> value = adopt((*p)->finish(WEBKIT_WEB_VIEW(source), res, GErrorOut(error)));
        (*p)->result = resultFromJSC(value.get(), error.get());
        (*p)->done = true;
    }, new std::shared_ptr<Pending>(pending));
    if (!waitUntil([&] { return pending->done; }, timeout))
        return JSResult { false, nullptr, "timed out" };
    return pending->result;
}

} // namespace

JSResult resultFromJSC(JSCValue* value, GError* error) {
    if (!value)
        return JSResult { false, nullptr, error ? error->message : "no value" };
    JSResult result { true, nullptr, {} };
    GCharPtr json(jsc_value_is_undefined(value) ? nullptr : jsc_value_to_json(value, 0));
    if (json)
        result.value = nlohmann::json::parse(json.get(), nullptr, false);
    return result;
}

void WebViewTest::TearDown() {
    if (window)
        gtk_window_destroy(window);
    window = nullptr;
    view = nullptr;
    bool allGone = waitUntil([&] { return std::all_of(m_watched.begin(), m_watched.end(), [](gpointer p) { return !p; }); }, 5s);
    for (auto& p : m_watched)
        if (p)
            g_object_remove_weak_pointer(G_OBJECT(p), &p);
    EXPECT_TRUE(allGone) << "an object made by the test outlived it";
    g_clear_object(&session);
}

bool WebViewTest::loadAndWait(const std::string& uri, std::chrono::milliseconds timeout) {
    bool finished = false;
    gulong id = g_signal_connect(view, "load-changed", G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, gpointer data) {
        *static_cast<bool*>(data) |= event == WEBKIT_LOAD_FINISHED;
    }), &finished);
    webkit_web_view_load_uri(view, uri.c_str());
    bool ok = waitUntil([&] { return finished; }, timeout);
    g_signal_handler_disconnect(view, id);
    return ok;
}

JSResult WebViewTest::runJS(const std::string& script, std::chrono::milliseconds timeout) {
    return waitForScript([&](GAsyncReadyCallback done, gpointer data) {
        webkit_web_view_evaluate_javascript(view, script.c_str(), gssize(script.size()), nullptr, nullptr, nullptr, done, data);
    }, webkit_web_view_evaluate_javascript_finish, timeout);
}

JSResult WebViewTest::callAsync(const std::string& body, const nlohmann::json& arguments, std::chrono::milliseconds timeout) {
    return waitForScript([&](GAsyncReadyCallback done, gpointer data) {
        webkit_web_view_call_async_javascript_function(view, body.c_str(), gssize(body.size()), toVariantDictionary(arguments),
            nullptr, nullptr, nullptr, done, data);
    }, webkit_web_view_call_async_javascript_function_finish, timeout);
}

GVariant* WebViewTest::toVariantDictionary(const nlohmann::json& arguments) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
    for (auto& [key, value] : arguments.items()) {
        GVariant* v = value.is_string()   ? g_variant_new_string(value.get<std::string>().c_str())
            : value.is_boolean()          ? g_variant_new_boolean(value.get<bool>())
            : value.is_number_integer()   ? g_variant_new_int64(value.get<int64_t>())
            : value.is_number()           ? g_variant_new_double(value.get<double>())
                                          : nullptr;
        if (v)
            g_variant_builder_add(&builder, "{sv}", key.c_str(), v);
    }
    return g_variant_builder_end(&builder);
}

bool WebViewTest::waitForJS(const std::string& expression, std::chrono::milliseconds timeout) {
    gint64 deadline = g_get_monotonic_time() + std::chrono::duration_cast<std::chrono::microseconds>(timeout).count();
    while (g_get_monotonic_time() < deadline) {
        auto result = runJS("!!(" + expression + ")", 5s);
        if (result.ok && result.value == true)
            return true;
        // Let the page run for a moment before asking again.
        bool tick = false;
        g_timeout_add_once(25, [](gpointer d) { *static_cast<bool*>(d) = true; }, &tick);
        waitUntil([&] { return tick; }, 1s);
    }
    return false;
}

} // namespace orvane::test
