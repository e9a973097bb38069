// From a page's title change to what Orvane does with it, in a real
// WebViewManager-owned view on the stand-in Gmail page (tests/fixtures/gmail):
//  - unread: to the manager telling its unread-count observers;
//  - badge: to the launcher-entry Update signal arriving on the session bus,
//    seen from a bus connection of the benchmark's own;
// timed two ways: from the page's own clock when its script sets
// document.title (performance.timeOrigin + now(), which WebKit rounds to
// 1 ms, so these figures are coarse and read high), and from the UI process
// asking the page to set each title (microsecond clock; includes the hop
// into the web process, so an upper bound);
//  - file writes: accounts.json writes (inotify: close-after-write and
//    rename onto the name) during count-only title changes, which must cause
//    none, and during changes of the address in the title, one each.
// Usage (needs a display and a session bus):
//   xvfb-run -a dbus-run-session -- build/bench/title_bench [changes, default 500]
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include "AppPaths.h"
#include "AccountStore.h"
#include "Files.h"
#include "MailService.h"
#include "AvatarRefresher.h"
#include "DockBadge.h"
#include "WebHost.h"
#include "WebViewManager.h"

#include <gtk/gtk.h>
#include <nlohmann/json.hpp>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

using namespace orvane;
using namespace orvane::test;

namespace {

double wallMilliseconds() { return static_cast<double>(g_get_real_time()) / 1000.0; }

// The first arrival time of each count, from the manager's observers and
// from the bus.
struct Arrivals {
    std::map<int64_t, double> unread;
    std::map<int64_t, double> badge;
};

// Launcher-entry signals seen on the session bus from our own connection.
class BadgeListener {
public:
    explicit BadgeListener(Arrivals& arrivals) : m_arrivals(arrivals) {
        GCharPtr address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
        if (!address)
            return;
        m_bus = adopt(g_dbus_connection_new_for_address_sync(address.get(),
            GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr));
        if (!m_bus)
            return;
        m_subscription = g_dbus_connection_signal_subscribe(m_bus.get(), nullptr, DockBadge::kInterface,
            DockBadge::kMember, DockBadge::kObjectPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
            +[](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters,
                 gpointer self) {
                double now = wallMilliseconds();
                if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv})")))
                    return;
                GVariant* properties = nullptr;
                const char* uri = nullptr;
                g_variant_get(parameters, "(&s@a{sv})", &uri, &properties);
                int64_t count = -1;
                g_variant_lookup(properties, "count", "x", &count);
                g_variant_unref(properties);
                static_cast<BadgeListener*>(self)->m_arrivals.badge.emplace(count, now);
            },
            this, nullptr);
        // The match rule is in place once a round trip has completed.
        GVariantPtr reply(g_dbus_connection_call_sync(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr));
    }
    ~BadgeListener() {
        if (m_subscription)
            g_dbus_connection_signal_unsubscribe(m_bus.get(), m_subscription);
    }
    bool ready() const { return m_subscription != 0; }

private:
    Arrivals& m_arrivals;
    Ref<GDBusConnection> m_bus;
    guint m_subscription = 0;
};

// Counts writes of one file in a folder.
class WriteCounter {
public:
    WriteCounter(const std::string& folder, std::string name) : m_name(std::move(name)) {
        m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_fd >= 0)
            inotify_add_watch(m_fd, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
    }
    ~WriteCounter() {
        if (m_fd >= 0)
            close(m_fd);
    }
    bool ready() const { return m_fd >= 0; }
    // Writes since the last call.
    int take() {
        int writes = 0;
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            ssize_t length = read(m_fd, buffer, sizeof buffer);
            if (length <= 0)
                break;
            for (char* p = buffer; p < buffer + length;) {
                auto* event = reinterpret_cast<inotify_event*>(p);
                if (event->len && m_name == event->name)
                    ++writes;
                p += sizeof(inotify_event) + event->len;
            }
        }
        return writes;
    }

private:
    std::string m_name;
    int m_fd = -1;
};

std::optional<nlohmann::json> evaluate(WebKitWebView* view, const std::string& script) {
    struct Pending {
        bool done = false;
        std::optional<nlohmann::json> value;
    } pending;
    webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr,
        nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
            auto* pending = static_cast<Pending*>(data);
            GErrorPtr error;
            auto value = adopt(webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result,
                GErrorOut(error)));
            if (value) {
                GCharPtr json(jsc_value_to_json(value.get(), 0));
                if (json)
                    pending->value = nlohmann::json::parse(json.get(), nullptr, false);
            }
            pending->done = true;
        },
        &pending);
    if (!waitUntil([&] { return pending.done; }, 60s))
        return std::nullopt;
    return pending.value;
}

struct Figures {
    double median = 0;
    double p90 = 0;
    double worst = 0;
    size_t samples = 0;
};

Figures figures(std::vector<double> delays) {
    Figures f;
    if (delays.empty())
        return f;
    std::sort(delays.begin(), delays.end());
    f.samples = delays.size();
    f.median = delays[delays.size() / 2];
    f.p90 = delays[std::min(delays.size() - 1, delays.size() * 9 / 10)];
    f.worst = delays.back();
    return f;
}

void print(const char* what, const Figures& f) {
    std::printf("  %-40s median %6.3f ms   p90 %6.3f ms   worst %6.3f ms   (%zu changes)\n", what, f.median, f.p90,
        f.worst, f.samples);
}

// Runs title changes in the page, `pauseMs` apart, each "Inbox (count) -
// address - Gmail", and returns the page's clock at each change once
// `lastArrived` holds.
std::optional<std::vector<double>> changeTitles(WebKitWebView* view, int64_t firstCount, int changes,
    bool alternateAddress, int pauseMs, const std::function<bool()>& lastArrived) {
    std::string script = "window.__benchTimes = null; (async () => {"
                         "  const times = [];"
                         "  for (let i = 0; i < " + std::to_string(changes) + "; ++i) {"
                         "    await new Promise(r => setTimeout(r, " + std::to_string(pauseMs) + "));"
                         "    const address = " + (alternateAddress ? "i % 2 ? 'b@example.com' : 'a@example.com'"
                                                                    : "'someone@example.com'") + ";"
                         "    times.push(performance.timeOrigin + performance.now());"
                         "    document.title = 'Inbox (' + (" + std::to_string(firstCount) + " + i) + ') - ' + address + ' - Gmail';"
                         "  }"
                         "  window.__benchTimes = times;"
                         "})(); true";
    if (!evaluate(view, script))
        return std::nullopt;
    // The page keeps its clock readings once its last title is set, in the
    // same task: by the time that title has reached Orvane they are there.
    if (!waitUntil(lastArrived, std::chrono::milliseconds(60000 + changes * pauseMs * 4)))
        return std::nullopt;
    auto times = evaluate(view, "window.__benchTimes");
    if (!times || !times->is_array() || times->size() != static_cast<size_t>(changes))
        return std::nullopt;
    return times->get<std::vector<double>>();
}

std::vector<double> delays(const std::vector<double>& sent, const std::map<int64_t, double>& arrived,
    int64_t firstCount, int* missing) {
    std::vector<double> result;
    for (size_t i = 0; i < sent.size(); ++i) {
        auto it = arrived.find(firstCount + static_cast<int64_t>(i));
        if (it == arrived.end()) {
            ++*missing;
            continue;
        }
        result.push_back(it->second - sent[i]);
    }
    return result;
}

// The same path timed from Orvane's side with the microsecond clock: each
// change is asked of the page by script from the UI process, so the figure
// also holds the hop into the web process. Returns the sent times by count.
std::map<int64_t, double> changeTitlesFromOutside(WebKitWebView* view, int64_t firstCount, int changes,
    const std::function<bool(int64_t count)>& arrived) {
    std::map<int64_t, double> sent;
    for (int i = 0; i < changes; ++i) {
        int64_t count = firstCount + i;
        std::string script = "document.title = 'Inbox (" + std::to_string(count) + ") - someone@example.com - Gmail'";
        sent[count] = wallMilliseconds();
        webkit_web_view_evaluate_javascript(view, script.c_str(), static_cast<gssize>(script.size()), nullptr, nullptr,
            nullptr, nullptr, nullptr);
        if (!waitUntil([&] { return arrived(count); }, 10s))
            break;
    }
    return sent;
}

} // namespace

int main(int argc, char** argv) {
    pinEnvironment();
    int changes = argc > 1 ? std::max(10, atoi(argv[1])) : 500;
    if (!gtk_init_check()) {
        std::fprintf(stderr, "title_bench needs a display: run it under xvfb-run -a dbus-run-session --\n");
        return 1;
    }

    FixtureServer server;
    nlohmann::json overrides = {
        { "gmail", { { "homeURL", server.uri("/gmail/") }, { "inAppHosts", { "127.0.0.1" } } } },
        { "outlook", { { "homeURL", server.uri("/outlook/mail/") }, { "inAppHosts", { "127.0.0.1" } } } },
        { "calendar", { { "homeURL", server.uri("/calendar/") }, { "inAppHosts", { "127.0.0.1" } } } },
    };
    std::string overridesPath = makeTempFolder("overrides") + "/services.json";
    Files::replaceAtomically(overridesPath, overrides.dump());
    g_setenv("ORVANE_SERVICE_OVERRIDES", overridesPath.c_str(), TRUE);

    Arrivals arrivals;
    BadgeListener badge(arrivals);
    if (!badge.ready()) {
        std::fprintf(stderr, "no session bus: run it under dbus-run-session\n");
        return 1;
    }

    int exitCode = 0;
    {
        AccountStore store;
        store.setShowDockBadge(true);
        store.save();
        PlainWebHost host;
        ServiceCatalog services = ServiceCatalog::fromEnvironment();
        WebViewManager manager(host, services);
        manager.configure(store);
        const Account account = store.addAccount();
        auto counts = manager.observeUnreadCounts([&] {
            double now = wallMilliseconds();
            auto it = manager.unreadCounts().find(account.id);
            if (it != manager.unreadCounts().end())
                arrivals.unread.emplace(it->second, now);
        });
        bool photoDone = false;
        auto photos = manager.avatars().observeFinished([&](const std::string&, AvatarRefresher::Outcome) {
            photoDone = true;
        });

        GtkWindow* window = GTK_WINDOW(gtk_window_new());
        gtk_window_set_default_size(window, 1024, 768);
        WebKitWebView* view = manager.webView(account);
        gtk_window_set_child(window, GTK_WIDGET(view));
        gtk_window_present(window);

        // Loaded, renamed from its first title, and its photo stored: from
        // here on nothing else writes the accounts file.
        bool settled = waitUntil([&] {
            return photoDone && !webkit_web_view_is_loading(view)
                && store.account(account.id)->label == "someone@example.com";
        }, 30s);
        WriteCounter writes(AppPaths::supportDir(), "accounts.json");
        if (!settled || !writes.ready()) {
            std::fprintf(stderr, "the page did not settle\n");
            exitCode = 1;
        } else {
            // A warm-up round, not counted.
            changeTitles(view, 100000, 20, false, 5, [&] { return arrivals.badge.contains(100019); });
            drainEvents();
            writes.take();

            constexpr int64_t kCountOnly = 1000;
            auto sent = changeTitles(view, kCountOnly, changes, false, 5,
                [&] { return arrivals.badge.contains(kCountOnly + changes - 1); });
            const int64_t kOutside = kCountOnly + changes + 1000;
            auto outsideSent = changeTitlesFromOutside(view, kOutside, changes,
                [&](int64_t count) { return arrivals.badge.contains(count); });
            drainEvents();
            int countOnlyWrites = writes.take();

            const int labelChanges = 20;
            const int64_t kLabels = kOutside + changes + 1000;
            auto labelSent = changeTitles(view, kLabels, labelChanges, true, 5,
                [&] { return arrivals.badge.contains(kLabels + labelChanges - 1); });
            drainEvents();
            int labelWrites = writes.take();

            if (!sent || !labelSent) {
                std::fprintf(stderr, "the page did not run its title changes\n");
                exitCode = 1;
            } else {
                int missingUnread = 0;
                int missingBadge = 0;
                auto unread = delays(*sent, arrivals.unread, kCountOnly, &missingUnread);
                auto badgeDelays = delays(*sent, arrivals.badge, kCountOnly, &missingBadge);
                auto tick = evaluate(view, "(() => { const a = performance.now(); let b = a;"
                                           " while (b === a) b = performance.now(); return b - a; })()");
                std::printf("Title change in the page -> Orvane (%d count-only changes, 5 ms apart; page clock step "
                            "%.3f ms)\n", changes, tick && tick->is_number() ? tick->get<double>() : -1.0);
                print("unread-count observers notified", figures(unread));
                print("launcher-entry signal on the session bus", figures(badgeDelays));
                std::vector<double> outsideUnread;
                std::vector<double> outsideBadge;
                for (const auto& [count, time] : outsideSent) {
                    if (auto it = arrivals.unread.find(count); it != arrivals.unread.end())
                        outsideUnread.push_back(it->second - time);
                    else
                        ++missingUnread;
                    if (auto it = arrivals.badge.find(count); it != arrivals.badge.end())
                        outsideBadge.push_back(it->second - time);
                    else
                        ++missingBadge;
                }
                std::printf("The same, asked of the page one at a time from the UI process (microsecond clock, "
                            "includes the hop into the page)\n");
                print("unread-count observers notified", figures(outsideUnread));
                print("launcher-entry signal on the session bus", figures(outsideBadge));
                if (missingUnread || missingBadge)
                    std::printf("  not seen: %d unread notifications, %d bus signals\n", missingUnread, missingBadge);
                std::printf("accounts.json writes: %d during %d count-only changes, %d during %d address changes\n",
                    countOnlyWrites, 2 * changes, labelWrites, labelChanges);
                if (countOnlyWrites != 0 || labelWrites != labelChanges)
                    exitCode = 1;
            }
        }
        gtk_window_destroy(window);
    }
    drainEvents();
    return exitCode;
}
