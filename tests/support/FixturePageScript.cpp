#include "support/FixturePageScript.h"

#include "Files.h"
#include "support/FixtureServer.h"

namespace orvane::test {

void serveFixtureWithScript(FixtureServer& server, const std::string& path, const std::string& file,
    ScriptSource script) {
    std::string fullPath = FixtureServer::fixturesDir() + file;
    server.handle(path, [fullPath, script](SoupServerMessage* message, const std::string&) {
        auto page = Files::read(fullPath, 16 * 1024 * 1024);
        if (!page) {
            soup_server_message_set_status(message, 404, nullptr);
            return;
        }
        std::string tag = "<script>\n" + script() + "\n</script>\n";
        auto end = page->rfind("</body>");
        page->insert(end == std::string::npos ? page->size() : end, tag);
        soup_server_message_set_status(message, 200, nullptr);
        soup_server_message_set_response(message, "text/html; charset=utf-8", SOUP_MEMORY_COPY, page->data(), page->size());
    });
}

} // namespace orvane::test
