// Time from `orvane 'mailto:…'` to a filled compose form, with Orvane
// running, its Gmail page (the stand-in of tests/fixtures) loaded and a
// default sending account set (no picker). Each link carries its own
// subject; the page tells the fixture server the moment its newest compose
// form holds that subject and the body, and the server notes the time.
// The figure includes starting the second `orvane` process that hands the
// link over, as a desktop's "open link" does, and the stand-in's own 300 ms
// delay before it shows a compose form (Gmail builds it a moment after the
// click, too).
// Usage: mailto_bench [links, default 50]
#include "support/FixturePageScript.h"
#include "support/FixtureServer.h"
#include "support/OrvaneProcess.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

using namespace orvane;
using namespace orvane::test;

namespace {

constexpr const char* kAccountID = "6A2F3C1E-8D4B-4E7A-9C1D-2B3E4F5A6B7C";
constexpr const char* kStoreID = "0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9";

// Reports the subject of the newest compose form once its body is in too
// (the compose script fills To, subject and body in that order), then
// closes the form.
const char* kReporter = R"((function () {
  let reported = '';
  const check = () => {
    const dialogs = window.__fixture ? window.__fixture.dialogs() : [];
    const newest = dialogs[0];
    if (!newest || !newest.body.startsWith('Body of ') || newest.subject === reported)
      return;
    reported = newest.subject;
    fetch('/filled?subject=' + encodeURIComponent(newest.subject));
    // Each link starts from an inbox without a compose form.
    setTimeout(() => { for (const close of document.querySelectorAll('#compose-area .close')) close.click(); }, 0);
  };
  document.addEventListener('input', check, true);
  fetch('/loaded');
})();)";

} // namespace

int main(int argc, char** argv) {
    pinEnvironment();
    int links = argc > 1 ? std::max(1, atoi(argv[1])) : 50;

    FixtureServer server;
    std::map<std::string, int64_t> filledAt; // subject -> monotonic time
    serveFixtureWithScript(server, "/gmail/", "/gmail/index.html", [] { return std::string(kReporter); });
    server.serve("/loaded", "", "text/plain");
    server.handle("/filled", [&](SoupServerMessage* message, const std::string&) {
        int64_t now = g_get_monotonic_time();
        GHashTable* params = g_uri_parse_params(g_uri_get_query(soup_server_message_get_uri(message)), -1, "&",
            G_URI_PARAMS_NONE, nullptr);
        if (params) {
            if (auto* subject = static_cast<const char*>(g_hash_table_lookup(params, "subject")))
                filledAt.emplace(subject, now);
            g_hash_table_unref(params);
        }
        soup_server_message_set_status(message, 204, nullptr);
    });

    OrvaneProcess orvane;
    orvane.overrideServices(server.uri("/gmail/"), server.uri("/outlook/mail/"), server.uri("/calendar/"));
    orvane.writeAccountsFile({
        { "accounts", nlohmann::json::array({ { { "id", kAccountID }, { "label", "bench@example.com" },
                          { "dataStoreID", kStoreID }, { "colorSeed", 40 } } }) },
        { "selectedAccountID", kAccountID },
        { "defaultMailtoAccountID", kAccountID },
        { "alwaysAskOnMailto", false },
    });
    if (!orvane.start() || !waitUntil([&] { return server.requestCount("/loaded") > 0; }, 60s)) {
        std::fprintf(stderr, "orvane did not start or its page did not load\n");
        return 1;
    }

    std::vector<double> samples;
    std::vector<double> handOvers;
    int failures = 0;
    for (int i = 0; i < links; ++i) {
        std::string subject = "Bench " + std::to_string(i);
        std::string url = "mailto:someone@example.com?subject=Bench%20" + std::to_string(i) + "&body=Body%20of%20"
            + std::to_string(i);
        int64_t start = g_get_monotonic_time();
        bool handedOver = orvane.openURL(url);
        handOvers.push_back(double(g_get_monotonic_time() - start) / 1000.0);
        bool filled = handedOver && waitUntil([&] { return filledAt.count(subject) > 0; }, 20s);
        if (!filled) {
            ++failures;
            continue;
        }
        samples.push_back(double(filledAt[subject] - start) / 1000.0);
    }
    orvane.stop();

    if (samples.empty()) {
        std::fprintf(stderr, "no link filled a form\n");
        return 1;
    }
    auto print = [](const char* what, std::vector<double> values) {
        std::sort(values.begin(), values.end());
        size_t n = values.size();
        double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
        std::printf("  %s: median %.1f ms, best %.1f ms, worst %.1f ms\n", what, median, values.front(), values.back());
    };
    std::printf("mailto link to filled compose form, %zu of %d links (%d failed)\n", samples.size(), links, failures);
    print("link to filled form", samples);
    print("of which `orvane URL` handing over and exiting", handOvers);
    return failures ? 1 : 0;
}
