#pragma once

#include "Account.h"
#include "Files.h"
#include "support/FixturePageScript.h"
#include "support/FixtureServer.h"
#include "support/OrvaneProcess.h"
#include "support/Wait.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <deque>
#include <set>
#include <sstream>

namespace orvane::test {

// Runs the real orvane against stand-in pages on a FixtureServer. The pages
// of tests/fixtures/e2e fill the window with one colour and report their
// loads at /e2e/loaded?page=<name>, so a test sees which page is on screen
// and how often each was loaded. Pages that load tests/fixtures/notify/remote.js
// (?who=<name>) run the scripts a test queues for them and report events.
class E2ETest : public ::testing::Test {
protected:
    static constexpr Screenshot::Color kRed { 0xd6, 0x28, 0x28 };
    static constexpr Screenshot::Color kGreen { 0x2a, 0x9d, 0x3f };
    // The live WebKit web processes below orvane (through the sandbox's own).
    std::set<int> webProcesses() const {
        auto listing = orvane.run({ "ps", "-e", "-o", "pid=,ppid=,s=,comm=" });
        std::map<int, int> parents;
        std::set<int> candidates, found;
        std::istringstream lines(listing ? listing->output : "");
        for (std::string line; std::getline(lines, line);) {
            int pid = 0, parent = 0;
            char state = 0, name[32] = "";
            if (sscanf(line.c_str(), "%d %d %c %31s", &pid, &parent, &state, name) != 4)
                continue;
            parents[pid] = parent;
            if (state != 'Z' && g_str_has_prefix(name, "WebKitWebProces"))
                candidates.insert(pid);
        }
        for (int pid : candidates)
            for (int above = parents[pid]; above > 1; above = parents.count(above) ? parents[above] : 0)
                if (above == orvane.pid())
                    found.insert(pid);
        return found;
    }

    // Pages ask /notify/next for scripts the test queued and report their
    // events to /notify/report, which the server records.
    E2ETest() {
        server.serve("/notify/report", "", "text/javascript");
        server.handle("/notify/next", [this](SoupServerMessage* message, const std::string&) {
            auto& queue = m_queues[parameter(g_uri_get_query(soup_server_message_get_uri(message)), "who")];
            FixtureServer::reply(message, 200, queue.empty() ? "" : queue.front(), "text/javascript");
            if (!queue.empty())
                queue.pop_front();
        });
    }
    // Orvane goes before the test's own members do. While it quits its pages
    // may still ask the server, and the handlers the test gave it may refer to
    // what is gone already (the test body's locals): they go first.
    void TearDown() override {
        if (m_display)
            gdk_display_close(m_display);
        server.forgetHandlers();
        orvane.stop(5s);
    }
    // This process's own connection to orvane's display, closed before the test ends.
    GdkDisplay* display() {
        return m_display = m_display ? m_display : gdk_display_open(orvane.getenv("DISPLAY"));
    }

    // Puts the services' home pages on the server, with 127.0.0.1 as their
    // only in-app host, and starts orvane with these arguments.
    bool startOrvane(const std::string& gmail = "/e2e/red.html",
        const std::string& outlook = "/e2e/green.html", const std::string& calendar = "/e2e/blue.html",
        const std::vector<std::string>& arguments = {}) {
        orvane.overrideServices(server.uri(gmail), server.uri(outlook), server.uri(calendar));
        return orvane.start(arguments);
    }

    // An account as accounts.json holds it.
    static nlohmann::json account(const std::string& id, const std::string& service) {
        return { { "id", id }, { "label", service }, { "dataStoreID", id }, { "colorSeed", 1 },
            { "service", service } };
    }
    // accounts.json with these accounts, the first one selected unless
    // `settings` says otherwise.
    void writeAccounts(const std::vector<nlohmann::json>& accounts, nlohmann::json settings = {}) {
        settings["accounts"] = accounts;
        if (!settings.contains("selectedAccountID"))
            settings["selectedAccountID"] = accounts.front()["id"];
        orvane.writeAccountsFile(settings);
    }
    // Serves the fixture at `path`, and holds its second answer back in
    // `held` until the test unpauses it.
    void holdSecondAnswer(const std::string& path) {
        auto page = Files::read(FixtureServer::fixturesDir() + path, 1 << 20).value_or("");
        server.handle(path, [this, path, page](SoupServerMessage* message, const std::string&) {
            FixtureServer::reply(message, 200, page);
            if (server.requestCount(path) == 2) {
                held = Ref<SoupServerMessage>(message);
                soup_server_message_pause(message);
            }
        });
    }

    // Serves a stand-in page (tests/fixtures/gmail/index.html…) at `path`
    // with remote.js and, when named, a reporter of tests/fixtures/e2e added.
    void serveWithRemote(const std::string& path, const std::string& file, const std::string& reporter = "") {
        auto text = [](const std::string& name) {
            return Files::read(FixtureServer::fixturesDir() + name, 1 << 16).value_or("");
        };
        auto scripts = text("/notify/remote.js") + (reporter.empty() ? "" : text("/e2e/" + reporter));
        serveFixtureWithScript(server, path, file, [=] { return scripts; });
    }
    // The page runs the script the next time it asks (within 50 ms).
    void runInPage(const std::string& who, const std::string& script) { m_queues[who].push_back(script); }
    // The data of each event of this name the page reported, in order.
    std::vector<nlohmann::json> events(const std::string& who, const std::string& event) const {
        std::vector<nlohmann::json> found;
        for (const auto& report : server.requests("/notify/report")) {
            const char* query = report.query.c_str();
            if (parameter(query, "who") == who && parameter(query, "event") == event)
                found.push_back(nlohmann::json::parse(parameter(query, "data"), nullptr, false));
        }
        return found;
    }
    bool waitForEvents(const std::string& who, const std::string& event, size_t count = 1) const {
        return waitUntil([&] { return events(who, event).size() >= count; }, 30s);
    }
    // How often the page of tests/fixtures/e2e of this name has loaded.
    int loads(const std::string& page) const {
        auto all = server.requests("/e2e/loaded");
        return int(std::ranges::count_if(all, [&](auto& r) { return r.query.starts_with("page=" + page); }));
    }
    // A text field of the page's compose form as compose-reporter.js last reported it, or "".
    std::string formField(const std::string& who, const char* name = "subject") const {
        auto forms = events(who, "form");
        auto form = forms.empty() ? nlohmann::json() : forms.back();
        return form.is_object() && form[name].is_string() ? form[name].get<std::string>() : "";
    }

    // The windows titled "Orvane" once there are `count` of them, the main
    // window (the first one found) first.
    std::vector<unsigned long> windows(size_t count = 1) {
        std::vector<unsigned long> found;
        if (!waitUntil([&] { return (found = orvane.windowsTitled("Orvane")).size() == count; }, 20s))
            return std::vector<unsigned long>(count, 0);
        std::partition(found.begin(), found.end(), [&](unsigned long w) { return w == m_main; });
        m_main = found.front();
        return found;
    }
    unsigned long mainWindow() { return windows(1).front(); }

    // A point of the window at these fractions of its size (in the web area
    // for the defaults).
    std::pair<int, int> pointIn(unsigned long window, double x = 0.7, double y = 0.6) {
        auto geometry = orvane.geometry(window).value_or(Screenshot::Rect { -1, -1, 0, 0 });
        return { geometry.x + int(geometry.width * x), geometry.y + int(geometry.height * y) };
    }
    std::pair<int, int> webAreaPoint() { return pointIn(mainWindow()); }

    // Takes screenshots until one passes the check (pages paint a little
    // after they report their load).
    bool waitForScreenshot(const std::string& name, const std::function<bool(const Screenshot&)>& check) {
        return waitUntil([&] {
            auto shot = orvane.screenshot(name);
            return shot && check(*shot);
        }, 20s);
    }
    bool waitForColor(std::pair<int, int> point, Screenshot::Color color, const std::string& name) {
        auto [x, y] = point;
        return waitForScreenshot(name, [&](auto& shot) { return shot.pixel(x, y).near(color); });
    }

    FixtureServer server;
    OrvaneProcess orvane;
    Ref<SoupServerMessage> held;

private:
    static std::string parameter(const char* query, const char* name) {
        GHashTable* form = soup_form_decode(query ? query : "");
        const char* value = static_cast<const char*>(g_hash_table_lookup(form, name));
        std::string result = value ? value : "";
        g_hash_table_unref(form);
        return result;
    }

    unsigned long m_main = 0;
    GdkDisplay* m_display = nullptr;
    std::map<std::string, std::deque<std::string>> m_queues;
};

} // namespace orvane::test
