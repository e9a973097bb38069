#pragma once

#include <functional>
#include <string>

namespace orvane::test {

class FixtureServer;

// Serves a fixture page (a file under tests/fixtures, such as
// "/gmail/index.html") at `path` with a script added before </body>, for
// programs that need a stand-in page to do a little more: report its load,
// change its unread count over time. The script is asked for anew on every
// request; a missing file gives 404.
using ScriptSource = std::function<std::string()>;
void serveFixtureWithScript(FixtureServer& server, const std::string& path, const std::string& file,
    ScriptSource script);

} // namespace orvane::test
