#include "NativeImageFetch.h"

#include "GRef.h"
#include "HTTPSession.h"
#include "ImageBytes.h"

#include <memory>

namespace orvane {

namespace {

constexpr gsize kReadChunk = 64 * 1024;

struct URIDeleter {
    void operator()(GUri* uri) const { g_uri_unref(uri); }
};
using URIPtr = std::unique_ptr<GUri, URIDeleter>;

std::string lower(std::string_view text) {
    GCharPtr lowered(g_ascii_strdown(text.data(), static_cast<gssize>(text.size())));
    return lowered ? lowered.get() : "";
}

bool isWebScheme(GUri* uri) {
    const char* scheme = g_uri_get_scheme(uri);
    return scheme && (g_str_equal(scheme, "http") || g_str_equal(scheme, "https"));
}

std::string hostOf(GUri* uri) {
    const char* host = g_uri_get_host(uri);
    return host ? lower(host) : std::string();
}

// The address's last path component, percent-decoded, when it looks like a
// file name (contains a dot).
std::string fileNameOf(GUri* uri) {
    std::string path = g_uri_get_path(uri);
    std::string last = path.substr(path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1);
    GCharPtr decoded(g_uri_unescape_string(last.c_str(), nullptr));
    if (decoded)
        last = decoded.get();
    return last.find('.') != std::string::npos ? last : std::string();
}

void freeCookies(GList* cookies) {
    g_list_free_full(cookies, reinterpret_cast<GDestroyNotify>(soup_cookie_free));
}

} // namespace

struct NativeImageFetch::Task {
    ~Task() {
        g_clear_handle_id(&timeout, g_source_remove);
        if (parent && parentHandler)
            g_cancellable_disconnect(parent.get(), parentHandler);
        freeCookies(cookies);
    }

    void finish(std::optional<Result> result) {
        g_clear_handle_id(&timeout, g_source_remove);
        if (!completion)
            return;
        Completion done = std::move(completion);
        completion = nullptr;
        done(std::move(result));
    }
    // After an error: a cancellation from outside ends the task quietly.
    void fail(const GError* error) {
        if (isCancelled(error) && !timedOut) {
            completion = nullptr;
            return;
        }
        finish(std::nullopt);
    }

    URIPtr original;
    std::string host; // of the original address, lower case
    std::string userAgent;
    GList* cookies = nullptr; // SoupCookie, owned
    Completion completion;
    Ref<GCancellable> cancellable;
    Ref<GCancellable> parent;
    gulong parentHandler = 0;
    guint timeout = 0;
    bool timedOut = false;
    int redirects = 0;
    URIPtr current;
    Ref<SoupMessage> message;
    Ref<GInputStream> stream;
    std::string body;
    std::string mimeType;
};

using TaskPtr = std::shared_ptr<NativeImageFetch::Task>;

namespace {

// Each asynchronous call carries one of these.
gpointer hold(const TaskPtr& task) { return new TaskPtr(task); }
TaskPtr take(gpointer data) {
    std::unique_ptr<TaskPtr> holder(static_cast<TaskPtr*>(data));
    return *holder;
}

void sendHop(const TaskPtr& task);

void readMore(const TaskPtr& task) {
    g_input_stream_read_bytes_async(task->stream.get(), kReadChunk, G_PRIORITY_DEFAULT, task->cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            TaskPtr task = take(data);
            GErrorPtr error;
            GBytesPtr bytes(g_input_stream_read_bytes_finish(G_INPUT_STREAM(source), result, GErrorOut(error)));
            if (!bytes) {
                task->fail(error.get());
                return;
            }
            gsize size = 0;
            const char* chunk = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
            if (size == 0) {
                g_input_stream_close(task->stream.get(), nullptr, nullptr);
                if (task->body.empty()) {
                    task->finish(std::nullopt);
                    return;
                }
                std::string name = fileNameOf(task->original.get());
                if (name.empty())
                    name = "image" + ImageBytes::extension(task->mimeType, task->body);
                task->finish(NativeImageFetch::Result { std::move(task->body), std::move(name) });
                return;
            }
            if (task->body.size() + size > NativeImageFetch::kMaxBytes) {
                g_cancellable_cancel(task->cancellable.get());
                task->finish(std::nullopt);
                return;
            }
            task->body.append(chunk, size);
            readMore(task);
        },
        hold(task));
}

void onSent(GObject* source, GAsyncResult* result, gpointer data) {
    TaskPtr task = take(data);
    GErrorPtr error;
    task->stream = adopt(soup_session_send_finish(SOUP_SESSION(source), result, GErrorOut(error)));
    if (!task->stream) {
        task->fail(error.get());
        return;
    }
    guint status = soup_message_get_status(task->message.get());
    SoupMessageHeaders* headers = soup_message_get_response_headers(task->message.get());
    if (SOUP_STATUS_IS_REDIRECTION(status)) {
        g_input_stream_close(task->stream.get(), nullptr, nullptr);
        task->stream.reset();
        const char* location = soup_message_headers_get_one(headers, "Location");
        URIPtr next(location ? g_uri_parse_relative(task->current.get(), location, GUriFlags(SOUP_HTTP_URI_FLAGS), nullptr)
                             : nullptr);
        if (!next || !isWebScheme(next.get()) || hostOf(next.get()).empty() || ++task->redirects > NativeImageFetch::kMaxRedirects) {
            task->finish(std::nullopt);
            return;
        }
        task->current = std::move(next);
        sendHop(task);
        return;
    }
    if (!SOUP_STATUS_IS_SUCCESSFUL(status)
        || soup_message_headers_get_content_length(headers) > static_cast<goffset>(NativeImageFetch::kMaxBytes)) {
        g_input_stream_close(task->stream.get(), nullptr, nullptr);
        task->finish(std::nullopt);
        return;
    }
    if (const char* type = soup_message_headers_get_content_type(headers, nullptr))
        task->mimeType = type;
    readMore(task);
}

void sendHop(const TaskPtr& task) {
    task->message = adopt(soup_message_new_from_uri(SOUP_METHOD_GET, task->current.get()));
    if (!task->message) {
        task->finish(std::nullopt);
        return;
    }
    // Redirects are followed by hand, so that cookies never follow one to another host.
    soup_message_add_flags(task->message.get(), SOUP_MESSAGE_NO_REDIRECT);
    SoupMessageHeaders* headers = soup_message_get_request_headers(task->message.get());
    std::string host = hostOf(task->current.get());
    if (host == task->host) {
        bool secure = g_str_equal(g_uri_get_scheme(task->current.get()), "https");
        std::string cookie = NativeImageFetch::cookieHeader(task->cookies, host, secure);
        if (!cookie.empty())
            soup_message_headers_replace(headers, "Cookie", cookie.c_str());
    }
    if (!task->userAgent.empty())
        soup_message_headers_replace(headers, "User-Agent", task->userAgent.c_str());
    soup_session_send_async(HTTPSession::shared(), task->message.get(), G_PRIORITY_DEFAULT, task->cancellable.get(),
        onSent, hold(task));
}

} // namespace

bool NativeImageFetch::domainMatches(std::string_view domain, std::string_view host) {
    std::string d = lower(domain);
    std::string h = lower(host);
    if (d.empty() || h.empty())
        return false;
    if (d[0] != '.')
        return d == h; // a host-only cookie
    d.erase(0, 1);
    if (d.empty())
        return false;
    return h == d || (h.size() > d.size() && h.compare(h.size() - d.size(), d.size(), d) == 0
        && h[h.size() - d.size() - 1] == '.');
}

std::string NativeImageFetch::cookieHeader(GList* cookies, std::string_view host, bool secureScheme) {
    GSList* matching = nullptr;
    GDateTime* now = g_date_time_new_now_utc();
    for (GList* item = cookies; item; item = item->next) {
        auto* cookie = static_cast<SoupCookie*>(item->data);
        const char* domain = cookie ? soup_cookie_get_domain(cookie) : nullptr;
        if (!domain || !domainMatches(domain, host))
            continue;
        if (soup_cookie_get_secure(cookie) && !secureScheme)
            continue;
        GDateTime* expires = soup_cookie_get_expires(cookie);
        if (expires && g_date_time_compare(expires, now) <= 0)
            continue;
        matching = g_slist_append(matching, cookie);
    }
    g_date_time_unref(now);
    if (!matching)
        return {};
    GCharPtr header(soup_cookies_to_cookie_header(matching));
    g_slist_free(matching);
    return header ? header.get() : "";
}

void NativeImageFetch::start(WebKitNetworkSession* session, const std::string& src, const std::string& userAgent,
    GCancellable* cancellable, Completion completion) {
    URIPtr uri(g_uri_parse(src.c_str(), GUriFlags(SOUP_HTTP_URI_FLAGS), nullptr));
    if (!session || !uri || !isWebScheme(uri.get()) || hostOf(uri.get()).empty()) {
        completion(std::nullopt);
        return;
    }
    auto task = std::make_shared<Task>();
    task->host = hostOf(uri.get());
    task->current.reset(g_uri_ref(uri.get()));
    task->original = std::move(uri);
    task->userAgent = userAgent;
    task->completion = std::move(completion);
    task->cancellable = adopt(g_cancellable_new());
    if (cancellable) {
        task->parent = Ref<GCancellable>(cancellable);
        task->parentHandler = g_cancellable_connect(cancellable, G_CALLBACK(+[](GCancellable*, gpointer own) {
            g_cancellable_cancel(G_CANCELLABLE(own));
        }), g_object_ref(task->cancellable.get()), g_object_unref);
    }
    std::weak_ptr<Task> weak = task;
    task->timeout = g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, kTimeoutSeconds, +[](gpointer data) -> gboolean {
        if (TaskPtr task = static_cast<std::weak_ptr<Task>*>(data)->lock()) {
            task->timeout = 0;
            task->timedOut = true;
            g_cancellable_cancel(task->cancellable.get());
        }
        return G_SOURCE_REMOVE;
    }, new std::weak_ptr<Task>(weak), +[](gpointer data) { delete static_cast<std::weak_ptr<Task>*>(data); });

    webkit_cookie_manager_get_all_cookies(webkit_network_session_get_cookie_manager(session), task->cancellable.get(),
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            TaskPtr task = take(data);
            GErrorPtr error;
            GList* cookies = webkit_cookie_manager_get_all_cookies_finish(WEBKIT_COOKIE_MANAGER(source), result,
                GErrorOut(error));
            if (g_cancellable_is_cancelled(task->cancellable.get())) {
                freeCookies(cookies);
                if (task->timedOut)
                    task->finish(std::nullopt);
                else
                    task->completion = nullptr;
                return;
            }
            task->cookies = cookies; // none on error: the request goes without
            sendHop(task);
        },
        hold(task));
}

} // namespace orvane
