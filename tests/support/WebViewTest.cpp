#include "support/WebViewTest.h"

namespace orvane::test {

JSResult resultFromJSC(JSCValue* value, GError* error) {
    if (!value)
        return JSResult { false, nullptr, error ? error->message : "no value" };
    JSResult result { true, nullptr, {} };
    GCharPtr json(jsc_value_is_undefined(value) ? nullptr : jsc_value_to_json(value, 0));
    if (json)
        result.value = nlohmann::json::parse(json.get(), nullptr, false);
    return result;
}

void WebTest::TearDown() {
    bool allGone = waitUntil([&] {
        return std::ranges::all_of(m_watched, [](gpointer p) { return !p; });
    }, 5s);
    for (auto& p : m_watched)
        if (p)
            g_object_remove_weak_pointer(G_OBJECT(p), &p);
    EXPECT_TRUE(allGone) << "an object made by the test outlived it";
}

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

JSResult WebTest::runJS(WebKitWebView* view, const std::string& script, std::chrono::milliseconds timeout) {
    return waitForScript([&](GAsyncReadyCallback done, gpointer data) {
        webkit_web_view_evaluate_javascript(view, script.c_str(), gssize(script.size()), nullptr, nullptr,
            nullptr, done, data);
    }, webkit_web_view_evaluate_javascript_finish, timeout);
}

JSResult WebTest::callAsync(WebKitWebView* view, const std::string& body,
    const std::map<std::string, std::string>& arguments, std::chrono::milliseconds timeout) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
    for (const auto& [key, value] : arguments)
        g_variant_builder_add(&builder, "{sv}", key.c_str(), g_variant_new_string(value.c_str()));
    return waitForScript([&](GAsyncReadyCallback done, gpointer data) {
        webkit_web_view_call_async_javascript_function(view, body.c_str(), gssize(body.size()),
            g_variant_builder_end(&builder), nullptr, nullptr, nullptr, done, data);
    }, webkit_web_view_call_async_javascript_function_finish, timeout);
}

bool WebTest::waitForJS(WebKitWebView* view, const std::string& expression, std::chrono::milliseconds timeout) {
    return waitUntil([&] {
        auto result = runJS(view, "!!(" + expression + ")", 5s);
        return result.ok && result.value == true;
    }, timeout);
}

bool WebTest::loadFixture(WebKitWebView* view, const std::string& path) {
    bool finished = false;
    gulong id = g_signal_connect(view, "load-changed", G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, gpointer data) {
        *static_cast<bool*>(data) |= event == WEBKIT_LOAD_FINISHED;
    }), &finished);
    webkit_web_view_load_uri(view, server.uri(path).c_str());
    bool ok = waitUntil([&] { return finished; }, 15s);
    g_signal_handler_disconnect(view, id);
    return ok;
}

} // namespace orvane::test
