// Orvane's web-process extension, loaded by WebKit into every web process.
// It gives each page a stamp and reports link clicks inside embedded frames.
// It talks to the UI process only through WebKit's own channels: the
// initialization data it is started with, and user messages to the page's
// own view. It opens no connection of its own and needs nothing outside
// the sandbox.
//
// The stamp: every frame of a page gets a read-only, non-configurable
// `window.__orvanePage` = "<page id>.<HMAC-SHA256 of the id under this
// run's key>". The key arrives as the initialization data and never enters a
// page, so a page can copy its own stamp but cannot make one for another
// page's id. The UI side (src/web/PageStamp.cpp) checks the signature and
// maps the id to the view with that webkit_web_view_get_page_id.
//
// Frame links: WebKit's decide-policy does not say which frame navigates. A
// click listener in Orvane's own script world (pages cannot see or remove it)
// reports each link activation that navigates an embedded frame (a link in
// the frame itself, or one that targets the frame by name), before WebKit
// asks for the navigation's policy over the same connection, so the UI side
// can let that navigation through whatever its host.

#include <webkit/webkit-web-process-extension.h>

#include <cstring>
#include <string>

namespace {

constexpr const char* kFrameLinkMessage = "orvane.frame-link";
constexpr size_t kMaxURILength = 64 * 1024;

std::string& runKey() {
    static std::string key;
    return key;
}

WebKitScriptWorld* orvaneWorld() {
    static WebKitScriptWorld* world = webkit_script_world_new_with_name("orvane"); // lives for the process
    return world;
}

std::string stampFor(guint64 pageID) {
    std::string message = std::to_string(pageID);
    const std::string& key = runKey();
    char* hmac = g_compute_hmac_for_string(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(key.data()), key.size(),
        message.c_str(), static_cast<gssize>(message.size()));
    std::string stamp = message + "." + (hmac ? hmac : "");
    g_free(hmac);
    return stamp;
}

void stampFrame(WebKitScriptWorld* world, WebKitWebPage* page, WebKitFrame* frame) {
    JSCContext* context = webkit_frame_get_js_context_for_script_world(frame, world);
    if (!context)
        return;
    // Runs before any script of the page, so Object.defineProperty is the
    // engine's own. Not writable, not enumerable, not configurable: a page
    // cannot replace or remove it.
    JSCValue* define = jsc_context_evaluate(context,
        "(function (stamp) { Object.defineProperty(window, '__orvanePage', { value: stamp }); })", -1);
    if (define && jsc_value_is_function(define)) {
        std::string stamp = stampFor(webkit_web_page_get_id(page));
        JSCValue* result = jsc_value_function_call(define, G_TYPE_STRING, stamp.c_str(), G_TYPE_NONE);
        g_clear_object(&result);
    }
    g_clear_object(&define);
    g_object_unref(context);
}

void reportFrameLink(const char* uri, gpointer data) {
    auto* pageRef = static_cast<GWeakRef*>(data);
    if (!uri || !*uri || strlen(uri) > kMaxURILength)
        return;
    auto* page = static_cast<WebKitWebPage*>(g_weak_ref_get(pageRef));
    if (!page)
        return;
    webkit_web_page_send_message_to_view(page, webkit_user_message_new(kFrameLinkMessage, g_variant_new_string(uri)),
        nullptr, nullptr, nullptr);
    g_object_unref(page);
}

// Runs in Orvane's world: the page's own scripts cannot reach `report`,
// and prototypes it patches are not the ones used here.
constexpr const char* kFrameLinkWatcher = R"JS(
(function (report) {
    // Whether following the link navigates an embedded frame rather than a
    // page's main frame or a new window.
    function targetsEmbeddedFrame(link) {
        var target = link.getAttribute('target');
        if (target === null) {
            var base = document.querySelector('base[target]');
            target = base ? base.getAttribute('target') : '';
        }
        var name = (target || '').toLowerCase();
        if (name === '' || name === '_self')
            return window !== window.top;
        if (name === '_parent')
            return window.parent !== window.top;
        if (name === '_top' || name === '_blank' || name === '_unfencedtop')
            return false;
        var named = null;
        try { named = window.top.frames[target]; } catch (e) {}
        return !!named && named !== window.top;
    }
    window.addEventListener('click', function (event) {
        try {
            if (event.button !== 0)
                return;
            var node = event.target;
            var link = node && node.closest ? node.closest('a[href], area[href]') : null;
            if (link && typeof link.href === 'string' && targetsEmbeddedFrame(link))
                report(link.href);
        } catch (e) {}
    }, true);
})
)JS";

void watchFrameLinks(WebKitWebPage* page, WebKitFrame* frame) {
    JSCContext* context = webkit_frame_get_js_context_for_script_world(frame, orvaneWorld());
    if (!context)
        return;
    auto* pageRef = g_new0(GWeakRef, 1);
    g_weak_ref_init(pageRef, page);
    JSCValue* report = jsc_value_new_function(context, nullptr, G_CALLBACK(reportFrameLink), pageRef,
        +[](gpointer data) {
            g_weak_ref_clear(static_cast<GWeakRef*>(data));
            g_free(data);
        },
        G_TYPE_NONE, 1, G_TYPE_STRING);
    JSCValue* install = jsc_context_evaluate(context, kFrameLinkWatcher, -1);
    if (install && jsc_value_is_function(install)) {
        JSCValue* result = jsc_value_function_call(install, JSC_TYPE_VALUE, report, G_TYPE_NONE);
        g_clear_object(&result);
    }
    g_clear_object(&install);
    g_object_unref(report);
    g_object_unref(context);
}

void onWindowObjectCleared(WebKitScriptWorld* world, WebKitWebPage* page, WebKitFrame* frame, gpointer) {
    stampFrame(world, page, frame);
    watchFrameLinks(page, frame);
}

} // namespace

extern "C" G_MODULE_EXPORT void webkit_web_process_extension_initialize_with_user_data(
    WebKitWebProcessExtension*, const GVariant* userData) {
    auto* data = const_cast<GVariant*>(userData);
    if (!data || !g_variant_is_of_type(data, G_VARIANT_TYPE_STRING))
        return;
    gsize length = 0;
    const char* key = g_variant_get_string(data, &length);
    if (length < 32)
        return;
    runKey().assign(key, length);
    g_signal_connect(webkit_script_world_get_default(), "window-object-cleared", G_CALLBACK(onWindowObjectCleared),
        nullptr);
}
