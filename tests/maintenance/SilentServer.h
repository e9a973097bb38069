#pragma once

#include "GRef.h"
#include "support/FixtureServer.h"

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

namespace orvane::test {

// Accepts connections on 127.0.0.1 and reads requests but never answers;
// counts the requests it got and the connections the client closed.
class SilentServer {
public:
    SilentServer() {
        Ref<GInetAddress> loopback = adopt(g_inet_address_new_loopback(G_SOCKET_FAMILY_IPV4));
        Ref<GSocketAddress> address = adopt(g_inet_socket_address_new(loopback.get(), 0));
        GSocketAddress* bound = nullptr;
        g_socket_listener_add_address(G_SOCKET_LISTENER(m_service.get()), address.get(), G_SOCKET_TYPE_STREAM,
            G_SOCKET_PROTOCOL_TCP, nullptr, &bound, nullptr);
        m_port = bound ? g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound)) : 0;
        g_clear_object(&bound);
        g_signal_connect(m_service.get(), "incoming", G_CALLBACK(+[](GSocketService*, GSocketConnection* socket, GObject*, gpointer self) {
            auto& connections = static_cast<SilentServer*>(self)->m_connections;
            connections.push_back(std::make_unique<Connection>(Connection { Ref<GSocketConnection>(socket), static_cast<SilentServer*>(self) }));
            readMore(connections.back().get());
            return TRUE;
        }), this);
    }
    ~SilentServer() {
        g_socket_service_stop(m_service.get());
        g_cancellable_cancel(m_cancellable.get());
        g_signal_handlers_disconnect_by_data(m_service.get(), this);
    }

    std::string uri(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(m_port) + path; }
    int requests() const {
        int count = 0;
        for (const auto& connection : m_connections)
            for (size_t at = connection->received.find("GET "); at != std::string::npos; at = connection->received.find("GET ", at + 1))
                ++count;
        return count;
    }
    int closedConnections() const {
        int count = 0;
        for (const auto& connection : m_connections)
            count += connection->closed;
        return count;
    }

private:
    struct Connection {
        Ref<GSocketConnection> socket;
        SilentServer* server = nullptr;
        std::string received;
        char buffer[4096] {};
        bool closed = false;
    };

    static void readMore(Connection* connection) {
        g_input_stream_read_async(g_io_stream_get_input_stream(G_IO_STREAM(connection->socket.get())), connection->buffer,
            sizeof connection->buffer, G_PRIORITY_DEFAULT, connection->server->m_cancellable.get(),
            [](GObject* stream, GAsyncResult* result, gpointer data) {
                GErrorPtr error;
                gssize size = g_input_stream_read_finish(G_INPUT_STREAM(stream), result, GErrorOut(error));
                if (isCancelled(error.get()))
                    return;
                auto* connection = static_cast<Connection*>(data);
                if (size <= 0)
                    return (void)(connection->closed = true);
                connection->received.append(connection->buffer, static_cast<size_t>(size));
                readMore(connection);
            }, connection);
    }

    Ref<GSocketService> m_service = adopt(g_socket_service_new());
    Ref<GCancellable> m_cancellable = adopt(g_cancellable_new());
    std::vector<std::unique_ptr<Connection>> m_connections;
    unsigned m_port = 0;
};

// A loopback port nobody listens on any more: connections to it are refused.
inline unsigned refusingLoopbackPort() { return FixtureServer().port(); }

} // namespace orvane::test
