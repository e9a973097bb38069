// Start-up time and memory of the real orvane with 1, 3 and 9 accounts on the
// stand-in provider pages (tests/fixtures), each run on a private X server
// and bus with fresh folders:
//  - start: from executing orvane to the selected account's page reporting
//    its load event (a beacon request the fixture server times);
//  - memory: proportional set size (PSS, /proc/<pid>/smaps_rollup) of orvane
//    and every process it started (WebKit's web and network processes and
//    their sandbox helpers), once every page has loaded and 3 s have passed.
// Then nine Gmail accounts with ORVANE_HIBERNATE_AFTER=2, once the eight not
// selected have gone to sleep:
//  - memory as above, and the CPU the whole tree used over the next 10 s;
//  - wake: from selecting a sleeping account to its page's load event, next
//    to a cold start's first page.
// Usage: startup_bench [runs per size, default 3] [--processes]
// (--processes lists every process measured, with its PSS.)
#include "support/FixturePageScript.h"
#include "support/FixtureServer.h"
#include "support/OrvaneProcess.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include "Account.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

using namespace orvane;
using namespace orvane::test;

namespace {

struct Sample {
    double startMilliseconds = 0;
    double wakeMilliseconds = 0;
    double idleCPUPercent = 0;
    double allLoadedMilliseconds = 0;
    double orvaneMiB = 0;
    double webKitMiB = 0;
    int processes = 0;
};

std::map<int, int> parentsOfAllProcesses() {
    std::map<int, int> parents;
    GDir* proc = g_dir_open("/proc", 0, nullptr);
    if (!proc)
        return parents;
    while (const char* name = g_dir_read_name(proc)) {
        int pid = atoi(name);
        if (pid <= 0)
            continue;
        std::ifstream stat("/proc/" + std::string(name) + "/stat");
        std::string line;
        if (!std::getline(stat, line))
            continue;
        // pid (comm) state ppid ...: comm may hold spaces, so start after ')'.
        auto close = line.rfind(')');
        if (close == std::string::npos)
            continue;
        std::istringstream rest(line.substr(close + 1));
        std::string state;
        int parent = 0;
        rest >> state >> parent;
        parents[pid] = parent;
    }
    g_dir_close(proc);
    return parents;
}

std::vector<int> withDescendants(int root) {
    auto parents = parentsOfAllProcesses();
    std::vector<int> result { root };
    std::set<int> seen { root };
    for (size_t i = 0; i < result.size(); ++i) {
        for (const auto& [pid, parent] : parents) {
            if (parent == result[i] && seen.insert(pid).second)
                result.push_back(pid);
        }
    }
    return result;
}

// Kibibytes; 0 when the process is gone or unreadable.
long pssKiB(int pid) {
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string line; std::getline(rollup, line);) {
        if (line.rfind("Pss:", 0) == 0)
            return atol(line.c_str() + 4);
    }
    return 0;
}

// The selected account is the only Gmail account, so the first Gmail
// beacon is its page; the others alternate between Outlook and Calendar.
nlohmann::json accountsFile(int count) {
    nlohmann::json accounts = nlohmann::json::array();
    std::string selected;
    for (int i = 0; i < count; ++i) {
        const char* service = i == 0 ? "mail" : (i % 2 ? "outlook" : "calendar");
        std::string id = newUUID();
        if (i == 0)
            selected = id;
        accounts.push_back({ { "id", id }, { "label", "Account " + std::to_string(i + 1) },
            { "dataStoreID", newUUID() }, { "colorSeed", (i * 47) % 360 }, { "service", service } });
    }
    return { { "accounts", accounts }, { "selectedAccountID", selected } };
}

bool s_listProcesses = false;

std::string commandName(int pid) {
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

// Clock ticks of CPU (user and system) the process has used; 0 when gone.
long cpuTicks(int pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line) || line.rfind(')') == std::string::npos)
        return 0;
    std::istringstream rest(line.substr(line.rfind(')') + 1));
    std::string field;
    long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && rest >> field; ++i) {
        if (i == 14)
            utime = atol(field.c_str());
        if (i == 15)
            stime = atol(field.c_str());
    }
    return utime + stime;
}

int webProcesses(int root) {
    int count = 0;
    for (int pid : withDescendants(root))
        count += commandName(pid).rfind("WebKitWebProces", 0) == 0;
    return count;
}


std::optional<Sample> measure(int accounts, bool hibernate = false) {
    FixtureServer server;
    std::vector<std::pair<std::string, int64_t>> loads; // page, monotonic time
    server.handle("/bench/loaded", [&](SoupServerMessage* message, const std::string&) {
        const char* query = g_uri_get_query(soup_server_message_get_uri(message));
        loads.emplace_back(query ? query : "", g_get_monotonic_time());
        soup_server_message_set_status(message, 204, nullptr);
    });
    for (auto [path, file, page] : { std::tuple { "/gmail/", "/gmail/index.html", "gmail" },
             std::tuple { "/outlook/mail/", "/outlook/mail/index.html", "outlook" },
             std::tuple { "/calendar/", "/calendar/index.html", "calendar" } }) {
        std::string script = "addEventListener('load', () => fetch('/bench/loaded?page=" + std::string(page) + "'));";
        serveFixtureWithScript(server, path, file, [script] { return script; });
    }

    OrvaneProcess orvane;
    orvane.overrideServices(server.uri("/gmail/"), server.uri("/outlook/mail/"), server.uri("/calendar/"));
    nlohmann::json file = accountsFile(accounts);
    if (hibernate) {
        for (auto& account : file["accounts"])
            account["service"] = "mail";
        orvane.setEnvironment("ORVANE_HIBERNATE_AFTER", "2");
    }
    orvane.writeAccountsFile(file);
    if (!orvane.start()) {
        std::fprintf(stderr, "orvane did not start:\n%s\n", orvane.log().c_str());
        return std::nullopt;
    }
    auto gmailLoad = [&]() -> std::optional<int64_t> {
        for (const auto& [page, time] : loads)
            if (page == "page=gmail")
                return time;
        return std::nullopt;
    };
    if (!waitUntil([&] { return gmailLoad().has_value(); }, 120s)
        || !waitUntil([&] { return int(loads.size()) >= accounts; }, 120s)) {
        std::fprintf(stderr, "pages did not load (%zu of %d)\n", loads.size(), accounts);
        return std::nullopt;
    }
    Sample sample;
    sample.startMilliseconds = double(*gmailLoad() - orvane.startedAt()) / 1000.0;
    sample.allLoadedMilliseconds = double(loads.back().second - orvane.startedAt()) / 1000.0;

    // Let late work (scripts, caches, the first unread polls) settle.
    waitUntil([] { return false; }, 3s);
    if (hibernate && !waitUntil([&] { return webProcesses(orvane.pid()) == 1; }, 60s)) {
        std::fprintf(stderr, "the idle accounts did not sleep (%d web processes)\n", webProcesses(orvane.pid()));
        return std::nullopt;
    }
    auto pids = withDescendants(orvane.pid());
    sample.processes = int(pids.size());
    for (int pid : pids) {
        double mib = double(pssKiB(pid)) / 1024.0;
        if (s_listProcesses)
            std::printf("    %d accounts: pid %-7d %-20s %8.1f MiB\n", accounts, pid, commandName(pid).c_str(), mib);
        (pid == orvane.pid() ? sample.orvaneMiB : sample.webKitMiB) += mib;
    }
    if (hibernate) {
        auto ticks = [&] {
            long total = 0;
            for (int pid : withDescendants(orvane.pid()))
                total += cpuTicks(pid);
            return total;
        };
        long before = ticks();
        int64_t from = g_get_monotonic_time();
        waitUntil([] { return false; }, 10s);
        double seconds = double(g_get_monotonic_time() - from) / 1e6;
        sample.idleCPUPercent = 100.0 * double(ticks() - before) / double(sysconf(_SC_CLK_TCK)) / seconds;

        size_t loaded = loads.size();
        int64_t selected = g_get_monotonic_time();
        if (!orvane.activateAction("select-account", g_variant_new_int32(2))
            || !waitUntil([&] { return loads.size() > loaded; }, 60s)) {
            std::fprintf(stderr, "the sleeping account did not wake\n");
            return std::nullopt;
        }
        sample.wakeMilliseconds = double(loads.back().second - selected) / 1000.0;
    }
    orvane.stop();
    return sample;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    pinEnvironment();
    int runs = 3;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--processes")
            s_listProcesses = true;
        else
            runs = std::max(1, atoi(argv[i]));
    }

    const char* renderer = g_getenv("GSK_RENDERER");
    std::printf("Orvane start-up and memory (median of %d runs; stand-in pages on 127.0.0.1; Xvfb; GSK_RENDERER=%s)\n\n",
        runs, renderer ? renderer : "default");
    std::printf("%8s  %18s  %16s  %12s  %14s  %12s  %9s\n", "accounts", "selected page (ms)", "all pages (ms)",
        "orvane (MiB)", "WebKit (MiB)", "total (MiB)", "processes");
    for (int accounts : { 1, 3, 9 }) {
        std::vector<double> start, all, own, webkit, total, processes;
        for (int run = 0; run < runs; ++run) {
            auto sample = measure(accounts);
            if (!sample)
                continue;
            start.push_back(sample->startMilliseconds);
            all.push_back(sample->allLoadedMilliseconds);
            own.push_back(sample->orvaneMiB);
            webkit.push_back(sample->webKitMiB);
            total.push_back(sample->orvaneMiB + sample->webKitMiB);
            processes.push_back(sample->processes);
        }
        if (start.empty()) {
            std::printf("%8d  failed\n", accounts);
            continue;
        }
        std::printf("%8d  %18.0f  %16.0f  %12.1f  %14.1f  %12.1f  %9.0f\n", accounts, median(start), median(all),
            median(own), median(webkit), median(total), median(processes));
        std::fflush(stdout);
    }

    std::printf("\n9 Gmail accounts, 8 asleep (ORVANE_HIBERNATE_AFTER=2)\n%12s  %12s  %14s  %16s\n", "total (MiB)",
        "idle CPU (%)", "wake (ms)", "cold first (ms)");
    std::vector<double> total, cpu, wake, cold;
    for (int run = 0; run < runs; ++run) {
        if (auto sample = measure(9, true)) {
            total.push_back(sample->orvaneMiB + sample->webKitMiB);
            cpu.push_back(sample->idleCPUPercent);
            wake.push_back(sample->wakeMilliseconds);
            cold.push_back(sample->startMilliseconds);
        }
    }
    if (total.empty())
        std::printf("%12s\n", "failed");
    else
        std::printf("%12.1f  %12.2f  %14.0f  %16.0f\n", median(total), median(cpu), median(wake), median(cold));
    return 0;
}
