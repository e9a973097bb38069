#include "NativeImageFetch.h"

#include "GRef.h"
#include "HTTPFetch.h"
#include "ImageBytes.h"

#include <memory>

namespace orvane {

namespace {

// The address's last path component, percent-decoded, when it looks like a
// file name (contains a dot).
std::string fileNameOf(const std::string& address) {
    GUri* uri = g_uri_parse(address.c_str(), GUriFlags(SOUP_HTTP_URI_FLAGS), nullptr);
    if (!uri)
        return {};
    std::string path = g_uri_get_path(uri);
    g_uri_unref(uri);
    std::string last = path.substr(path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1);
    GCharPtr decoded(g_uri_unescape_string(last.c_str(), nullptr));
    if (decoded)
        last = decoded.get();
    return last.find('.') != std::string::npos ? last : std::string();
}

// What the cookie step hands on to the fetch.
struct Pending {
    HTTPFetch::Request request;
    Ref<GCancellable> cancellable;
    NativeImageFetch::Completion completion;
};

void fetch(std::unique_ptr<Pending> pending, GList* cookies) {
    pending->request.cookies = cookies;
    std::string address = pending->request.address;
    HTTPFetch::start(std::move(pending->request), pending->cancellable.get(),
        [address, completion = std::move(pending->completion)](HTTPFetch::Outcome outcome) {
            if (outcome.failure == HTTPFetch::Failure::Cancelled)
                return;
            if (!outcome.ok() || outcome.body.empty())
                return completion(std::nullopt);
            std::string name = fileNameOf(address);
            if (name.empty())
                name = "image" + ImageBytes::extension(outcome.contentType, outcome.body);
            completion(NativeImageFetch::Result { std::move(outcome.body), std::move(name) });
        });
    g_list_free_full(cookies, reinterpret_cast<GDestroyNotify>(soup_cookie_free));
}

} // namespace

void NativeImageFetch::start(WebKitNetworkSession* session, const std::string& src, const std::string& userAgent,
    GCancellable* cancellable, Completion completion) {
    auto pending = std::make_unique<Pending>();
    pending->request.address = src;
    pending->request.maxBytes = kMaxBytes;
    pending->request.timeoutMilliseconds = kTimeoutSeconds * 1000;
    pending->request.userAgent = userAgent;
    pending->cancellable = cancellable ? Ref<GCancellable>(cancellable) : adopt(g_cancellable_new());
    pending->completion = std::move(completion);
    if (!session)
        return fetch(std::move(pending), nullptr);
    GCancellable* own = pending->cancellable.get();
    webkit_cookie_manager_get_all_cookies(webkit_network_session_get_cookie_manager(session), own,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
            GList* cookies = webkit_cookie_manager_get_all_cookies_finish(WEBKIT_COOKIE_MANAGER(source), result,
                nullptr);
            // On an error (a cancel included) the fetch goes without cookies
            // and tells the cancel itself.
            fetch(std::move(pending), cookies);
        },
        pending.release());
}

} // namespace orvane
