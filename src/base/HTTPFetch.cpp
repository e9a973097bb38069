#include "HTTPFetch.h"

#include "GRef.h"
#include "HTTPSession.h"
#include "HeapBox.h"

#include <memory>

namespace orvane {

namespace {

constexpr gsize kReadChunk = 64 * 1024;

struct URIDeleter {
    void operator()(GUri* uri) const { g_uri_unref(uri); }
};
using URIPtr = std::unique_ptr<GUri, URIDeleter>;

// An http or https address with a host, or nothing.
URIPtr webAddress(GUri* base, const char* address) {
    if (!address)
        return nullptr;
    auto flags = GUriFlags(SOUP_HTTP_URI_FLAGS);
    URIPtr uri(base ? g_uri_parse_relative(base, address, flags, nullptr) : g_uri_parse(address, flags, nullptr));
    const char* scheme = uri ? g_uri_get_scheme(uri.get()) : nullptr;
    const char* host = uri ? g_uri_get_host(uri.get()) : nullptr;
    bool web = scheme && (!g_ascii_strcasecmp(scheme, "http") || !g_ascii_strcasecmp(scheme, "https"));
    return web && host && *host ? std::move(uri) : nullptr;
}

bool sameHost(GUri* a, GUri* b) {
    return !g_ascii_strcasecmp(g_uri_get_host(a), g_uri_get_host(b));
}

void freeCookies(GList* cookies) {
    g_list_free_full(cookies, reinterpret_cast<GDestroyNotify>(soup_cookie_free));
}

} // namespace

// One fetch in flight; each asynchronous step holds it.
struct FetchTask {
    ~FetchTask() {
        g_clear_handle_id(&timeout, g_source_remove);
        if (parentHandler)
            g_cancellable_disconnect(parent.get(), parentHandler);
        freeCookies(cookies);
    }

    void finish(HTTPFetch::Failure failure) {
        g_clear_handle_id(&timeout, g_source_remove);
        if (!completion)
            return;
        outcome.failure = failure;
        if (failure != HTTPFetch::Failure::None)
            outcome.body.clear();
        if (stream)
            g_input_stream_close_async(stream.get(), G_PRIORITY_DEFAULT, nullptr, nullptr, nullptr);
        HTTPFetch::Completion done = std::move(completion);
        completion = nullptr;
        done(std::move(outcome));
    }
    // After a failed step: tells a time-out and the caller's cancel apart.
    void fail(const GError* error) {
        if (timedOut)
            return finish(HTTPFetch::Failure::TimedOut);
        if (isCancelled(error))
            return finish(HTTPFetch::Failure::Cancelled);
        outcome.error = error ? error->message : "";
        finish(HTTPFetch::Failure::Transport);
    }

    HTTPFetch::Request request;
    HTTPFetch::Completion completion;
    HTTPFetch::Outcome outcome;
    URIPtr first;
    URIPtr current;
    GList* cookies = nullptr; // SoupCookie, owned
    int redirects = 0;
    Ref<GCancellable> cancellable; // the fetch's own: the time-out cancels only it
    Ref<GCancellable> parent;
    gulong parentHandler = 0;
    guint timeout = 0;
    bool timedOut = false;
    Ref<SoupMessage> message;
    Ref<GInputStream> stream;
};

namespace {

using TaskPtr = std::shared_ptr<FetchTask>;

gpointer hold(const TaskPtr& task) { return HeapBox::make<TaskPtr>(task); }
TaskPtr take(gpointer data) {
    return *HeapBox::take<TaskPtr>(data);
}

void sendHop(const TaskPtr& task);

void onRead(GObject* source, GAsyncResult* result, gpointer data) {
    TaskPtr task = take(data);
    GErrorPtr error;
    GBytesPtr chunk(g_input_stream_read_bytes_finish(G_INPUT_STREAM(source), result, GErrorOut(error)));
    if (!chunk)
        return task->fail(error.get());
    gsize size = 0;
    const auto* bytes = static_cast<const char*>(g_bytes_get_data(chunk.get(), &size));
    if (size == 0)
        return task->finish(HTTPFetch::Failure::None);
    if (task->outcome.body.size() + size > task->request.maxBytes)
        return task->finish(HTTPFetch::Failure::TooLarge);
    task->outcome.body.append(bytes, size);
    g_input_stream_read_bytes_async(task->stream.get(), kReadChunk, G_PRIORITY_DEFAULT, task->cancellable.get(),
        onRead, hold(task));
}

void onSent(GObject* source, GAsyncResult* result, gpointer data) {
    TaskPtr task = take(data);
    GErrorPtr error;
    task->stream = adopt(soup_session_send_finish(SOUP_SESSION(source), result, GErrorOut(error)));
    if (!task->stream)
        return task->fail(error.get());
    unsigned status = soup_message_get_status(task->message.get());
    SoupMessageHeaders* headers = soup_message_get_response_headers(task->message.get());
    task->outcome.status = status;
    const char* type = soup_message_headers_get_content_type(headers, nullptr);
    task->outcome.contentType = type ? type : "";
    if (SOUP_STATUS_IS_REDIRECTION(status) && soup_message_headers_get_one(headers, "Location")) {
        URIPtr next = webAddress(task->current.get(), soup_message_headers_get_one(headers, "Location"));
        if (!next || ++task->redirects > HTTPFetch::kMaxRedirects)
            return task->finish(HTTPFetch::Failure::Address);
        g_input_stream_close_async(task->stream.get(), G_PRIORITY_DEFAULT, nullptr, nullptr, nullptr);
        task->stream.reset();
        task->current = std::move(next);
        return sendHop(task);
    }
    if (!SOUP_STATUS_IS_SUCCESSFUL(status))
        return task->finish(HTTPFetch::Failure::Status);
    if (soup_message_headers_get_content_length(headers) > static_cast<goffset>(task->request.maxBytes))
        return task->finish(HTTPFetch::Failure::TooLarge);
    g_input_stream_read_bytes_async(task->stream.get(), kReadChunk, G_PRIORITY_DEFAULT, task->cancellable.get(),
        onRead, hold(task));
}

// The Cookie header for the current hop: only on the first address's host.
std::string cookieHeader(const FetchTask& task) {
    if (!task.cookies || !sameHost(task.first.get(), task.current.get()))
        return {};
    const char* host = g_uri_get_host(task.current.get());
    GSList* matching = nullptr;
    for (GList* item = task.cookies; item; item = item->next) {
        auto* cookie = static_cast<SoupCookie*>(item->data);
        if (soup_cookie_domain_matches(cookie, host) && soup_cookie_applies_to_uri(cookie, task.current.get()))
            matching = g_slist_append(matching, cookie);
    }
    if (!matching)
        return {};
    GCharPtr header(soup_cookies_to_cookie_header(matching));
    g_slist_free(matching);
    return header ? header.get() : "";
}

void sendHop(const TaskPtr& task) {
    task->message = adopt(soup_message_new_from_uri(SOUP_METHOD_GET, task->current.get()));
    SoupMessage* message = task->message.get();
    // Redirects are followed here, so that cookies never follow one to another host.
    soup_message_add_flags(message, SOUP_MESSAGE_NO_REDIRECT);
    if (task->request.bypassCache)
        soup_message_disable_feature(message, SOUP_TYPE_CACHE);
    SoupMessageHeaders* headers = soup_message_get_request_headers(message);
    if (std::string cookie = cookieHeader(*task); !cookie.empty())
        soup_message_headers_replace(headers, "Cookie", cookie.c_str());
    if (!task->request.userAgent.empty())
        soup_message_headers_replace(headers, "User-Agent", task->request.userAgent.c_str());
    soup_session_send_async(HTTPSession::shared(), message, G_PRIORITY_DEFAULT, task->cancellable.get(), onSent,
        hold(task));
}

} // namespace

void HTTPFetch::start(Request request, GCancellable* cancellable, Completion completion) {
    auto task = std::make_shared<FetchTask>();
    task->first = webAddress(nullptr, request.address.c_str());
    for (GList* item = request.cookies; item; item = item->next)
        task->cookies = g_list_prepend(task->cookies, soup_cookie_copy(static_cast<SoupCookie*>(item->data)));
    task->cookies = g_list_reverse(task->cookies);
    task->request = std::move(request);
    task->request.cookies = nullptr;
    task->completion = std::move(completion);
    task->cancellable = adopt(g_cancellable_new());
    if (cancellable) {
        task->parent = Ref<GCancellable>(cancellable);
        task->parentHandler = g_cancellable_connect(cancellable,
            G_CALLBACK(+[](GCancellable*, gpointer own) { g_cancellable_cancel(G_CANCELLABLE(own)); }),
            g_object_ref(task->cancellable.get()), g_object_unref);
    }
    if (!task->first || g_cancellable_is_cancelled(task->cancellable.get())) {
        // Never from inside start(): the caller may still be setting up.
        g_idle_add_full(G_PRIORITY_DEFAULT, +[](gpointer data) -> gboolean {
            TaskPtr task = take(data);
            task->finish(g_cancellable_is_cancelled(task->cancellable.get()) ? Failure::Cancelled : Failure::Address);
            return G_SOURCE_REMOVE;
        }, hold(task), nullptr);
        return;
    }
    std::weak_ptr<FetchTask> weak = task;
    task->timeout = g_timeout_add_full(G_PRIORITY_DEFAULT, task->request.timeoutMilliseconds, +[](gpointer data) -> gboolean {
        if (TaskPtr task = static_cast<std::weak_ptr<FetchTask>*>(data)->lock()) {
            task->timeout = 0;
            task->timedOut = true;
            g_cancellable_cancel(task->cancellable.get());
        }
        return G_SOURCE_REMOVE;
    }, HeapBox::make<std::weak_ptr<FetchTask>>(weak), HeapBox::free<std::weak_ptr<FetchTask>>);
    task->current.reset(g_uri_ref(task->first.get()));
    sendHop(task);
}

} // namespace orvane
