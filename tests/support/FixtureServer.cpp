#include "support/FixtureServer.h"

#include "Files.h"

#include <glib.h>

namespace orvane::test {

FixtureServer::FixtureServer(unsigned port)
    : m_server(adopt(soup_server_new(nullptr, nullptr))) {
    soup_server_add_handler(m_server.get(), nullptr, &FixtureServer::onRequest, this, nullptr);
    GErrorPtr error;
    if (!soup_server_listen_local(m_server.get(), port, SOUP_SERVER_LISTEN_IPV4_ONLY, GErrorOut(error)))
        g_error("fixture server: %s", error ? error->message : "cannot listen");
    GSList* uris = soup_server_get_uris(m_server.get());
    m_port = uris ? unsigned(g_uri_get_port(static_cast<GUri*>(uris->data))) : 0;
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
}

void FixtureServer::serve(const std::string& path, std::string body, std::string contentType, unsigned status,
    std::map<std::string, std::string> headers) {
    handle(path, [=](SoupServerMessage* message, const std::string&) {
        for (const auto& [name, value] : headers)
            soup_message_headers_append(soup_server_message_get_response_headers(message), name.c_str(),
                value.c_str());
        reply(message, status, body, contentType);
    });
}

void FixtureServer::reply(SoupServerMessage* message, unsigned status, const std::string& body,
    const std::string& contentType) {
    soup_server_message_set_status(message, status, nullptr);
    if (!body.empty())
        soup_server_message_set_response(message, contentType.c_str(), SOUP_MEMORY_COPY, body.data(),
            body.size());
}

std::vector<FixtureServer::Request> FixtureServer::requests(const std::string& path) const {
    auto it = m_requests.find(path);
    return it == m_requests.end() ? std::vector<Request>() : it->second;
}

void FixtureServer::onRequest(SoupServer*, SoupServerMessage* message, const char* path, GHashTable*, gpointer data) {
    auto* self = static_cast<FixtureServer*>(data);
    Request request;
    request.method = soup_server_message_get_method(message);
    request.path = path;
    if (const char* query = g_uri_get_query(soup_server_message_get_uri(message)))
        request.query = query;
    soup_message_headers_foreach(soup_server_message_get_request_headers(message), +[](const char* name, const char* value, gpointer headers) {
        (*static_cast<std::map<std::string, std::string>*>(headers))[GCharPtr(g_ascii_strdown(name, -1)).get()] = value;
    }, &request.headers);
    self->m_requests[request.path].push_back(request);

    if (auto it = self->m_handlers.find(path); it != self->m_handlers.end()) {
        auto handler = it->second; // the handler may replace itself
        handler(message, path);
        return;
    }
    self->serveFile(message, path);
}

static const char* contentTypeFor(const std::string& path) {
    static const std::pair<const char*, const char*> types[] = { { ".html", "text/html; charset=utf-8" },
        { ".js", "text/javascript; charset=utf-8" }, { ".png", "image/png" } };
    for (const auto& [extension, type] : types)
        if (g_str_has_suffix(path.c_str(), extension))
            return type;
    return "application/octet-stream";
}

void FixtureServer::serveFile(SoupServerMessage* message, const std::string& path) {
    std::string relative = path;
    if (relative.empty() || relative.back() == '/')
        relative += "index.html";
    if (relative.find("..") != std::string::npos)
        return reply(message, 403);
    auto bytes = Files::read(fixturesDir() + relative, 64 * 1024 * 1024);
    if (!bytes)
        return reply(message, 404);
    reply(message, 200, *bytes, contentTypeFor(relative));
}

} // namespace orvane::test
