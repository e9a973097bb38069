#pragma once

#include "GRef.h"

#include <libsoup/soup.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace orvane::test {

// An HTTP server on 127.0.0.1 (on `port`, or one the system chooses) that serves the
// stand-in provider pages of tests/fixtures, counts requests per path and
// records their headers. Tests may add handlers for paths of their own.
class FixtureServer {
public:
    struct Request {
        std::string method, path, query;
        std::map<std::string, std::string> headers; // names lower-cased
    };
    using Handler = std::function<void(SoupServerMessage*, const std::string& path)>;

    explicit FixtureServer(unsigned port = 0);
    ~FixtureServer() { soup_server_disconnect(m_server.get()); }
    FixtureServer(const FixtureServer&) = delete;
    FixtureServer& operator=(const FixtureServer&) = delete;

    // "http://127.0.0.1:PORT" + path (path starts with "/").
    std::string uri(const std::string& path) const { return uriOnHost("127.0.0.1", path); }
    // The same on another loopback name ("localhost"), a different host as far
    // as the pages and Orvane's host rules are concerned.
    std::string uriOnHost(const std::string& host, const std::string& path) const {
        return "http://" + host + ":" + std::to_string(m_port) + path;
    }
    unsigned port() const { return m_port; }

    // Serves this path with the handler instead of a fixture file.
    void handle(const std::string& path, Handler handler) { m_handlers[path] = std::move(handler); }
    // Serves fixture files only from now on.
    void forgetHandlers() { m_handlers.clear(); }
    // Serves a fixed answer.
    void serve(const std::string& path, std::string body, std::string contentType = "text/html; charset=utf-8",
        unsigned status = 200, std::map<std::string, std::string> headers = {});
    // Answers a message (a handler's, or one it held) with a status and a body.
    static void reply(SoupServerMessage* message, unsigned status, const std::string& body = "",
        const std::string& contentType = "text/html; charset=utf-8");

    int requestCount(const std::string& path) const { return int(requests(path).size()); }
    std::vector<Request> requests(const std::string& path) const;
    void resetCounts() { m_requests.clear(); }

    static std::string fixturesDir() { return ORVANE_FIXTURES_DIR; }

private:
    static void onRequest(SoupServer*, SoupServerMessage*, const char* path, GHashTable* query, gpointer self);
    void serveFile(SoupServerMessage*, const std::string& path);

    Ref<SoupServer> m_server;
    unsigned m_port = 0;
    std::map<std::string, Handler> m_handlers;
    std::map<std::string, std::vector<Request>> m_requests;
};

} // namespace orvane::test
