#pragma once

#include "support/FixtureServer.h"
#include "support/Wait.h"

#include <libsoup/soup.h>
#include <nlohmann/json.hpp>

#include <deque>
#include <map>
#include <string>
#include <vector>

namespace orvane::test {

// Drives the pages that load tests/fixtures/notify/remote.js: queues scripts
// for a page (by its `who`) and collects what the pages report.
class PageRemote {
public:
    struct Event {
        std::string who;
        std::string event;
        nlohmann::json data;
    };

    explicit PageRemote(FixtureServer& server)
        : m_server(server) {
        server.handle("/notify/next", [this](SoupServerMessage* message, const std::string&) {
            std::string script;
            auto& queue = m_queues[parameter(message, "who")];
            if (!queue.empty()) {
                script = queue.front();
                queue.pop_front();
            }
            respond(message, script);
        });
        server.handle("/notify/report", [this](SoupServerMessage* message, const std::string&) {
            auto data = nlohmann::json::parse(parameter(message, "data"), nullptr, false);
            m_events.push_back({ parameter(message, "who"), parameter(message, "event"),
                data.is_discarded() ? nlohmann::json(nullptr) : data });
            respond(message, "");
        });
    }

    // The server may outlive the remote (and answer pages while orvane stops).
    ~PageRemote() {
        for (const char* path : { "/notify/next", "/notify/report" })
            m_server.handle(path, [](SoupServerMessage* message, const std::string&) { respond(message, ""); });
    }
    PageRemote(const PageRemote&) = delete;
    PageRemote& operator=(const PageRemote&) = delete;

    // The page runs the script the next time it asks (within 50 ms).
    void run(const std::string& who, const std::string& script) { m_queues[who].push_back(script); }

    std::vector<Event> events(const std::string& who, const std::string& event) const {
        std::vector<Event> found;
        for (const auto& e : m_events)
            if (e.who == who && e.event == event)
                found.push_back(e);
        return found;
    }

    bool waitForEvents(const std::string& who, const std::string& event, size_t count,
        std::chrono::milliseconds timeout = 20s) const {
        return waitUntil([&] { return events(who, event).size() >= count; }, timeout);
    }

private:
    static std::string parameter(SoupServerMessage* message, const char* name) {
        const char* query = g_uri_get_query(soup_server_message_get_uri(message));
        if (!query)
            return "";
        GHashTable* form = soup_form_decode(query);
        const char* value = static_cast<const char*>(g_hash_table_lookup(form, name));
        std::string result = value ? value : "";
        g_hash_table_unref(form);
        return result;
    }

    static void respond(SoupServerMessage* message, const std::string& body) {
        soup_server_message_set_status(message, 200, nullptr);
        soup_message_headers_replace(soup_server_message_get_response_headers(message), "Cache-Control", "no-store");
        soup_server_message_set_response(message, "text/javascript; charset=utf-8", SOUP_MEMORY_COPY, body.data(),
            body.size());
    }

    FixtureServer& m_server;
    std::map<std::string, std::deque<std::string>> m_queues;
    std::vector<Event> m_events;
};

} // namespace orvane::test
