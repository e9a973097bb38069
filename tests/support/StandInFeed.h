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
                std::string entries;
                int count = 0;
                for (const auto& mail : unread) {
                    if (primary && !mail.primary)
                        continue;
                    ++count;
                    entries += GCharPtr(g_markup_printf_escaped("<entry><id>%s</id><title>%s</title>"
                        "<issued>%s</issued><author><name>%s</name></author></entry>", mail.id.c_str(),
                        mail.subject.c_str(), mail.issued.c_str(), mail.sender.c_str())).get();
                }
                const std::string feed = "<feed xmlns=\"http://purl.org/atom/ns#\"><fullcount>"
                    + std::to_string(count) + "</fullcount>" + entries + "</feed>";
                FixtureServer::reply(message, 200, feed, "text/xml; charset=UTF-8");
            });
    }
};

} // namespace orvane::test
