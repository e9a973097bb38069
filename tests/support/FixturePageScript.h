#pragma once

#include "Files.h"
#include "support/FixtureServer.h"

#include <functional>
#include <string>

namespace orvane::test {

// Serves a fixture page (a file under tests/fixtures, such as
// "/gmail/index.html") at `path` with a script added before </body>, for
// programs that need a stand-in page to do a little more: report its load,
// change its unread count over time. The script is asked for anew on every
// request; a missing file gives 404.
using ScriptSource = std::function<std::string()>;
inline void serveFixtureWithScript(FixtureServer& server, const std::string& path, const std::string& file, ScriptSource script) {
    server.handle(path, [fullPath = FixtureServer::fixturesDir() + file, script](SoupServerMessage* message, const std::string&) {
        auto page = Files::read(fullPath, 16 * 1024 * 1024);
        if (!page)
            return FixtureServer::reply(message, 404);
        auto end = page->rfind("</body>");
        page->insert(end == std::string::npos ? page->size() : end, "<script>\n" + script() + "\n</script>\n");
        FixtureServer::reply(message, 200, *page);
    });
}

} // namespace orvane::test
