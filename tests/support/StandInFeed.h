#pragma once

#include "support/FixtureServer.h"

#include <glib.h>

#include <string>
#include <vector>

namespace orvane::test {

// The stand-in Gmail's unread feeds with messages a test chooses, served
// instead of tests/fixtures/gmail/feed/atom: the whole inbox at `path` and
// the Primary category's at path + "/^sq_ig_i_personal".
class StandInFeed {
public:
    struct Mail {
        std::string id, sender, email, subject, issued; // issued: ISO 8601
        bool primary = true;
    };

    explicit StandInFeed(FixtureServer& server, std::string path = "/gmail/feed/atom")
        : m_path(std::move(path)) {
        server.handle(m_path, [this](SoupServerMessage* message, const std::string&) { serve(message, false); });
        for (const char* primary : { "/^sq_ig_i_personal", "/%5Esq_ig_i_personal" })
            server.handle(m_path + primary, [this](SoupServerMessage* message, const std::string&) { serve(message, true); });
    }

    // The unread messages, newest first.
    std::vector<Mail> unread;

private:
    static std::string escaped(const std::string& text) {
        char* escaped = g_markup_escape_text(text.c_str(), -1);
        std::string result = escaped;
        g_free(escaped);
        return result;
    }

    void serve(SoupServerMessage* message, bool primaryOnly) const {
        std::string entries;
        int count = 0;
        for (const auto& mail : unread) {
            if (primaryOnly && !mail.primary)
                continue;
            ++count;
            entries += "<entry><title>" + escaped(mail.subject) + "</title><issued>" + mail.issued + "</issued><id>"
                + escaped(mail.id) + "</id><author><name>" + escaped(mail.sender) + "</name><email>"
                + escaped(mail.email) + "</email></author></entry>\n";
        }
        std::string body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><feed version=\"0.3\" "
                           "xmlns=\"http://purl.org/atom/ns#\"><fullcount>"
            + std::to_string(count) + "</fullcount>\n" + entries + "</feed>";
        soup_server_message_set_status(message, 200, nullptr);
        soup_server_message_set_response(message, "text/xml; charset=UTF-8", SOUP_MEMORY_COPY, body.data(), body.size());
    }

    std::string m_path;
};

} // namespace orvane::test
