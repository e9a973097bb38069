// Orvane's web-process extension, loaded by WebKit into every web process.
// It gives each frame a stamp, reports link clicks inside embedded frames and
// clicks on file inputs. It talks to the UI process only through WebKit's own
// channels: the initialization data it is started with, and user messages to
// the page's own view. It opens no connection of its own and needs nothing
// outside the sandbox.
//
// The stamp: every frame gets a read-only, non-configurable
// `window.__orvanePage` = "<page id>.<origin>.<HMAC-SHA256 of "<page
// id>.<origin>" under this run's key>", where the origin is the one the
// engine gives the frame's document (`self.origin` read from Orvane's own
// script world before any script of the page runs): inherited by about:blank
// and srcdoc frames, "null" for sandboxed and data: frames. The key arrives
// as the initialization data and never enters a page, so a frame can copy its
// own stamp but cannot make one for another page's id or another origin. The
// UI side (src/web/PageStamp.cpp, MessageSender.cpp) checks the signature,
// maps the id to the view with that webkit_web_view_get_page_id and the
// origin to the service's hosts.
//
// Frame links: WebKit's decide-policy does not say which frame navigates. A
// click listener in Orvane's own script world (pages cannot see or remove it)
// reports each link activation that navigates an embedded frame (a link in
// the frame itself, or one that targets the frame by name), before WebKit
// asks for the navigation's policy over the same connection, so the UI side
// can let that navigation through whatever its host.
//
// Memory: asked "orvane.memory" by the UI process, the extension answers with
// what its own process uses now, the proportional set size in bytes from
// /proc/self/smaps_rollup (a uint64; 0 when it cannot be read). Reading it
// here needs no process id, which a sandbox's own process namespace would
// change.
//
// File inputs: WebKit's run-file-chooser does not say which frame asks either.
// The same listener reports the origin of the frame whose file input is
// clicked; the chooser request that the click opens follows on the same
// connection, so the UI side knows whose chooser it is before it answers it
// with dropped files.

#include <webkit/webkit-web-process-extension.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr const char* kFrameLinkMessage = "orvane.frame-link";
constexpr const char* kFileInputMessage = "orvane.file-input";
constexpr size_t kMaxURILength = 64 * 1024;
constexpr size_t kMaxOriginLength = 512;
constexpr const char* kMemoryMessage = "orvane.memory";

std::string& runKey() {
    static std::string key;
    return key;
}

WebKitScriptWorld* orvaneWorld() {
    static WebKitScriptWorld* world = webkit_script_world_new_with_name("orvane"); // lives for the process
    return world;
}

std::string stampFor(guint64 pageID, const std::string& origin) {
    std::string message = std::to_string(pageID) + "." + origin;
    const std::string& key = runKey();
    char* hmac = g_compute_hmac_for_string(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(key.data()), key.size(),
        message.c_str(), static_cast<gssize>(message.size()));
    std::string stamp = message + "." + (hmac ? hmac : "");
    g_free(hmac);
    return stamp;
}

// The serialized origin of the frame's current document, read in Orvane's
// world, where the page's scripts cannot reach the getter; "null" when it
// cannot be read.
std::string originOf(WebKitFrame* frame) {
    std::string origin = "null";
    JSCContext* context = webkit_frame_get_js_context_for_script_world(frame, orvaneWorld());
    if (!context)
        return origin;
    JSCValue* value = jsc_context_evaluate(context, "self.origin", -1);
    if (value && jsc_value_is_string(value)) {
        char* text = jsc_value_to_string(value);
        if (text && *text && strlen(text) <= kMaxOriginLength && !strchr(text, '\n'))
            origin = text;
        g_free(text);
    }
    g_clear_object(&value);
    g_object_unref(context);
    return origin;
}

void stampFrame(WebKitScriptWorld* world, WebKitWebPage* page, WebKitFrame* frame, const std::string& origin) {
    JSCContext* context = webkit_frame_get_js_context_for_script_world(frame, world);
    if (!context)
        return;
    // Runs before any script of the page, so Object.defineProperty is the
    // engine's own. Not writable, not enumerable, not configurable: a page
    // cannot replace or remove it.
    JSCValue* define = jsc_context_evaluate(context,
        "(function (stamp) { Object.defineProperty(window, '__orvanePage', { value: stamp }); })", -1);
    if (define && jsc_value_is_function(define)) {
        std::string stamp = stampFor(webkit_web_page_get_id(page), origin);
        JSCValue* result = jsc_value_function_call(define, G_TYPE_STRING, stamp.c_str(), G_TYPE_NONE);
        g_clear_object(&result);
    }
    // A window kept for the next document of the same origin keeps its stamp.
    jsc_context_clear_exception(context);
    g_clear_object(&define);
    g_object_unref(context);
}

// What the reporting functions of one frame's listener know: its page, held
// weakly, and its document's origin.
struct FrameReporter {
    GWeakRef page;
    std::string origin;
};

void sendToView(FrameReporter* reporter, const char* name, GVariant* parameters) {
    auto* page = static_cast<WebKitWebPage*>(g_weak_ref_get(&reporter->page));
    if (!page) {
        g_variant_unref(g_variant_ref_sink(parameters));
        return;
    }
    webkit_web_page_send_message_to_view(page, webkit_user_message_new(name, parameters), nullptr, nullptr, nullptr);
    g_object_unref(page);
}

void reportFrameLink(const char* uri, gpointer data) {
    if (!uri || !*uri || strlen(uri) > kMaxURILength)
        return;
    sendToView(static_cast<FrameReporter*>(data), kFrameLinkMessage, g_variant_new_string(uri));
}

void reportFileInput(gpointer data) {
    auto* reporter = static_cast<FrameReporter*>(data);
    sendToView(reporter, kFileInputMessage, g_variant_new_string(reporter->origin.c_str()));
}

// Runs in Orvane's world: the page's own scripts cannot reach `report`,
// and prototypes it patches are not the ones used here.
constexpr const char* kClickWatcher = R"JS(
(function (report, reportFileInput) {
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
            // However the click was made (the user, a label, the page's own
            // input.click()): its chooser request follows.
            var first = event.composedPath()[0];
            if (first && first.localName === 'input' && String(first.type).toLowerCase() === 'file')
                reportFileInput();
        } catch (e) {}
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

FrameReporter* newReporter(WebKitWebPage* page, const std::string& origin) {
    auto* reporter = std::make_unique<FrameReporter>(FrameReporter { {}, origin }).release();
    g_weak_ref_init(&reporter->page, page);
    return reporter;
}

void freeReporter(gpointer data) {
    std::unique_ptr<FrameReporter> reporter(static_cast<FrameReporter*>(data));
    g_weak_ref_clear(&reporter->page);
}

void watchClicks(WebKitWebPage* page, WebKitFrame* frame, const std::string& origin) {
    JSCContext* context = webkit_frame_get_js_context_for_script_world(frame, orvaneWorld());
    if (!context)
        return;
    JSCValue* linkReport = jsc_value_new_function(context, nullptr, G_CALLBACK(reportFrameLink),
        newReporter(page, origin), freeReporter, G_TYPE_NONE, 1, G_TYPE_STRING);
    JSCValue* fileInputReport = jsc_value_new_function(context, nullptr, G_CALLBACK(reportFileInput),
        newReporter(page, origin), freeReporter, G_TYPE_NONE, 0);
    JSCValue* install = jsc_context_evaluate(context, kClickWatcher, -1);
    if (install && jsc_value_is_function(install)) {
        JSCValue* result = jsc_value_function_call(install, JSC_TYPE_VALUE, linkReport, JSC_TYPE_VALUE, fileInputReport,
            G_TYPE_NONE);
        g_clear_object(&result);
    }
    g_clear_object(&install);
    g_object_unref(fileInputReport);
    g_object_unref(linkReport);
    g_object_unref(context);
}

void onWindowObjectCleared(WebKitScriptWorld* world, WebKitWebPage* page, WebKitFrame* frame, gpointer) {
    std::string origin = originOf(frame);
    stampFrame(world, page, frame, origin);
    watchClicks(page, frame, origin);
}

guint64 proportionalSetSize() {
    guint64 bytes = 0;
    FILE* file = fopen("/proc/self/smaps_rollup", "re");
    if (!file)
        return 0;
    char line[256];
    while (fgets(line, sizeof line, file)) {
        unsigned long long kibibytes = 0;
        if (sscanf(line, "Pss: %llu kB", &kibibytes) == 1) {
            bytes = guint64(kibibytes) * 1024;
            break;
        }
    }
    fclose(file);
    return bytes;
}

gboolean onPageMessage(WebKitWebPage*, WebKitUserMessage* message, gpointer) {
    if (g_strcmp0(webkit_user_message_get_name(message), kMemoryMessage) != 0)
        return FALSE;
    webkit_user_message_send_reply(message,
        webkit_user_message_new(kMemoryMessage, g_variant_new_uint64(proportionalSetSize())));
    return TRUE;
}

void onPageCreated(WebKitWebProcessExtension*, WebKitWebPage* page, gpointer) {
    g_signal_connect(page, "user-message-received", G_CALLBACK(onPageMessage), nullptr);
}

} // namespace

extern "C" G_MODULE_EXPORT void webkit_web_process_extension_initialize_with_user_data(
    WebKitWebProcessExtension* extension, const GVariant* userData) {
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
    g_signal_connect(extension, "page-created", G_CALLBACK(onPageCreated), nullptr);
}
