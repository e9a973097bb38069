// Serves tests/fixtures on 127.0.0.1 and prints the port, for the demo
// (tools/demo.sh) and for trying page scripts by hand. Runs until SIGINT or
// SIGTERM.
//
//   orvane-fixture-server          the fixture pages as they are
//   orvane-fixture-server --demo   the provider stand-ins also take on an
//                                  identity and get new mail now and then
#include "support/FixturePageScript.h"
#include "support/FixtureServer.h"

#include <glib-unix.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// Each account's page keeps the identity it was first given in its own
// session storage; the server hands out identities in turn.
const char* kPeople[][2] = {
    { "ada.lovelace@example.com", "Ada Lovelace" },
    { "grace.hopper@example.com", "Grace Hopper" },
    { "alan.turing@example.com", "Alan Turing" },
    { "katherine.johnson@example.com", "Katherine Johnson" },
    { "edsger.dijkstra@example.com", "Edsger Dijkstra" },
    { "barbara.liskov@example.com", "Barbara Liskov" },
};

std::string demoScript(const char* service, int turn) {
    const auto& person = kPeople[turn % G_N_ELEMENTS(kPeople)];
    std::string identity = nlohmann::json::array({ person[0], person[1] }).dump();
    return std::string("(() => {\n"
                       "  const fixture = window.__fixture;\n"
                       "  if (!fixture) return;\n"
                       "  let me = null;\n"
                       "  try { me = JSON.parse(localStorage.getItem('orvane-demo-identity')); } catch (e) { }\n"
                       "  if (!Array.isArray(me)) {\n"
                       "    me = ") + identity + ";\n"
        "    try { localStorage.setItem('orvane-demo-identity', JSON.stringify(me)); } catch (e) { }\n"
        "  }\n"
        "  const service = " + nlohmann::json(service).dump() + ";\n"
        "  if (service === 'gmail') fixture.setAccount(me[0], me[1]); else fixture.setAccount(me[1]);\n"
        "  let unread = 1 + Math.floor(Math.random() * 6);\n"
        "  fixture.setUnread(unread);\n"
        "  setInterval(() => {\n"
        "    unread = Math.max(0, unread + (Math.random() < 0.6 ? 1 : -2));\n"
        "    fixture.setUnread(unread);\n"
        "  }, 5000 + Math.floor(Math.random() * 5000));\n"
        "})();";
}

} // namespace

int main(int argc, char** argv) {
    bool demo = argc > 1 && std::strcmp(argv[1], "--demo") == 0;
    orvane::test::FixtureServer server;
    if (demo) {
        // A new identity for every page served, so two accounts of one
        // service show two different people.
        auto turn = std::make_shared<int>(0);
        orvane::test::serveFixtureWithScript(server, "/gmail/", "/gmail/index.html", [turn] { return demoScript("gmail", (*turn)++); });
        orvane::test::serveFixtureWithScript(server, "/outlook/mail/", "/outlook/mail/index.html", [turn] { return demoScript("outlook", (*turn)++); });
    }
    std::printf("%u\n", server.port());
    std::fflush(stdout);

    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    auto quit = +[](gpointer loop) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_REMOVE;
    };
    g_unix_signal_add(SIGINT, quit, loop);
    g_unix_signal_add(SIGTERM, quit, loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return 0;
}
