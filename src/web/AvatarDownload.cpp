#include "AvatarDownload.h"

#include "GRef.h"
#include "HTTPSession.h"

#include <libsoup/soup.h>

#include <memory>

namespace orvane {

namespace {

constexpr gsize kChunkBytes = 64 * 1024;

// One download in flight, owned by whichever asynchronous step runs next.
struct Transfer {
    ~Transfer() {
        g_clear_handle_id(&timeout, g_source_remove);
        if (parentHandler)
            g_cancellable_disconnect(parent.get(), parentHandler);
    }

    AvatarDownload::Completion completion;
    Ref<GCancellable> cancellable; // this transfer's own: the time-out cancels only it
    Ref<GCancellable> parent;
    gulong parentHandler = 0;
    guint timeout = 0;
    Ref<SoupMessage> message;
    Ref<GInputStream> stream;
    std::string body;
};

void finish(std::unique_ptr<Transfer> transfer, std::optional<std::string> body) {
    auto completion = std::move(transfer->completion);
    transfer.reset(); // closes the stream and disconnects before the caller runs
    if (completion)
        completion(std::move(body));
}

void readNext(std::unique_ptr<Transfer> transfer);

void onRead(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<Transfer> transfer(static_cast<Transfer*>(data));
    GErrorPtr error;
    GBytesPtr chunk(g_input_stream_read_bytes_finish(G_INPUT_STREAM(source), result, GErrorOut(error)));
    if (!chunk)
        return finish(std::move(transfer), std::nullopt);
    gsize size = 0;
    const auto* bytes = static_cast<const char*>(g_bytes_get_data(chunk.get(), &size));
    if (size == 0) {
        if (transfer->body.empty())
            return finish(std::move(transfer), std::nullopt);
        std::string body = std::move(transfer->body);
        return finish(std::move(transfer), std::move(body));
    }
    if (transfer->body.size() + size > AvatarDownload::kMaxBytes)
        return finish(std::move(transfer), std::nullopt);
    transfer->body.append(bytes, size);
    readNext(std::move(transfer));
}

void readNext(std::unique_ptr<Transfer> transfer) {
    GInputStream* stream = transfer->stream.get();
    GCancellable* cancellable = transfer->cancellable.get();
    g_input_stream_read_bytes_async(stream, kChunkBytes, G_PRIORITY_DEFAULT, cancellable, onRead, transfer.release());
}

void onSent(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<Transfer> transfer(static_cast<Transfer*>(data));
    GErrorPtr error;
    transfer->stream = adopt(soup_session_send_finish(SOUP_SESSION(source), result, GErrorOut(error)));
    if (!transfer->stream)
        return finish(std::move(transfer), std::nullopt);
    guint status = soup_message_get_status(transfer->message.get());
    if (!SOUP_STATUS_IS_SUCCESSFUL(status)) {
        g_info("Refused an account photo answered with HTTP status %u", status);
        return finish(std::move(transfer), std::nullopt);
    }
    goffset announced = soup_message_headers_get_content_length(
        soup_message_get_response_headers(transfer->message.get()));
    if (announced > static_cast<goffset>(AvatarDownload::kMaxBytes))
        return finish(std::move(transfer), std::nullopt);
    readNext(std::move(transfer));
}

} // namespace

void AvatarDownload::start(const std::string& address, GCancellable* cancellable, Completion completion) {
    auto transfer = std::make_unique<Transfer>();
    transfer->completion = std::move(completion);

    GUri* parsed = g_uri_parse(address.c_str(), GUriFlags(SOUP_HTTP_URI_FLAGS), nullptr);
    const char* scheme = parsed ? g_uri_get_scheme(parsed) : nullptr;
    bool web = scheme && (!g_ascii_strcasecmp(scheme, "http") || !g_ascii_strcasecmp(scheme, "https"));
    if (web && g_uri_get_host(parsed) && *g_uri_get_host(parsed))
        transfer->message = adopt(soup_message_new_from_uri(SOUP_METHOD_GET, parsed));
    if (parsed)
        g_uri_unref(parsed);
    if (!transfer->message || (cancellable && g_cancellable_is_cancelled(cancellable)))
        return finish(std::move(transfer), std::nullopt);

    transfer->cancellable = adopt(g_cancellable_new());
    if (cancellable) {
        transfer->parent = Ref<GCancellable>(cancellable);
        transfer->parentHandler = g_cancellable_connect(cancellable,
            G_CALLBACK(+[](GCancellable*, gpointer own) { g_cancellable_cancel(G_CANCELLABLE(own)); }),
            transfer->cancellable.get(), nullptr);
    }
    transfer->timeout = g_timeout_add_seconds(kTimeoutSeconds, +[](gpointer own) -> gboolean {
        g_cancellable_cancel(G_CANCELLABLE(own));
        return G_SOURCE_CONTINUE;
    }, transfer->cancellable.get());

    SoupMessage* message = transfer->message.get();
    GCancellable* own = transfer->cancellable.get();
    soup_session_send_async(HTTPSession::shared(), message, G_PRIORITY_DEFAULT, own, onSent, transfer.release());
}

} // namespace orvane
