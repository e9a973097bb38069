#pragma once

#include "GRef.h"
#include "support/FixtureServer.h"

#include <sys/socket.h>

#include <string>
#include <vector>

namespace orvane::test {

// Requests to a path of a FixtureServer that are read and never answered.
// The server notices nothing while a message is paused, so whether the
// client gave up is read from the connection itself.
class UnansweredRequests {
public:
    UnansweredRequests(FixtureServer& server, const std::string& path) {
        server.handle(path, [this](SoupServerMessage* message, const std::string&) {
            m_sockets.emplace_back(soup_server_message_get_socket(message));
            soup_server_message_pause(message);
        });
    }

    // How many of those connections the client has closed.
    int closed() const {
        int count = 0;
        char byte;
        for (const auto& socket : m_sockets)
            count += recv(g_socket_get_fd(socket.get()), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
        return count;
    }

private:
    std::vector<Ref<GSocket>> m_sockets;
};

} // namespace orvane::test
