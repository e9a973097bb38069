#pragma once

#include "GRef.h"
#include "support/FixtureServer.h"

#include <string>
#include <vector>

namespace orvane::test {

// The stand-in Gmail's unread feeds with the messages a test chooses, served
// instead of tests/fixtures/gmail/feed/atom: the whole inbox at `path`, the
// Primary category's at path + "/^sq_ig_i_personal".
struct StandInFeed {
    struct Mail {
        std::string id, sender, subject, issued; // issued: ISO 8601
        bool primary = true;
    };
    std::vector<Mail> unread; // newest first

    explicit StandInFeed(FixtureServer& server, const std::string& path = "/gmail/feed/atom") {
        for (bool primary : { false, true })
            server.handle(path + (primary ? "/^sq_ig_i_personal" : ""), [this, primary](SoupServerMessage* message, const std::string&) {
                std::string body;
                int count = 0;
                for (const auto& mail : unread) {
                    if (primary && !mail.primary)
                        continue;
                    ++count;
                    body += GCharPtr(g_markup_printf_escaped("<entry><id>%s</id><title>%s</title><issued>%s</issued><author>"
                        "<name>%s</name></author></entry>", mail.id.c_str(), mail.subject.c_str(), mail.issued.c_str(),
                        mail.sender.c_str())).get();
                }
                body = "<feed xmlns=\"http://purl.org/atom/ns#\"><fullcount>" + std::to_string(count) + "</fullcount>" + body + "</feed>";
                soup_server_message_set_status(message, 200, nullptr);
                soup_server_message_set_response(message, "text/xml; charset=UTF-8", SOUP_MEMORY_COPY, body.data(), body.size());
            });
    }
};

} // namespace orvane::test
