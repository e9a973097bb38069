#pragma once

#include "Files.h"
#include "GRef.h"
#include "support/BusCall.h"
#include "support/Screenshot.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <sstream>

namespace orvane::test {

// The real orvane binary (ORVANE_BINARY) run the way a user runs it, on an X
// server (Xvfb, 1280 x 800) and a session bus of its own, with fresh, empty
// HOME and XDG folders. Tests drive it through its application actions over
// D-Bus and through `orvane URL`, and look at it through accounts.json, the X
// windows and screenshots. Waiting runs the test's main loop, so servers in
// the test keep answering. The destructor stops it all, and prints what
// orvane printed when the test failed.
class OrvaneProcess {
public:
    struct Result {
        int status = -1; // -1 when it did not exit normally
        std::string output;
    };

    OrvaneProcess() {
        for (auto [name, folder] :
            { std::pair { "HOME", "home" }, { "XDG_DATA_HOME", "data" }, { "XDG_CONFIG_HOME", "config" },
                { "XDG_CACHE_HOME", "cache" }, { "XDG_RUNTIME_DIR", "runtime" } }) {
            Files::makeFolder(m_folder + "/" + folder);
            setEnvironment(name, m_folder + "/" + folder);
        }
        setEnvironment("GDK_BACKEND", "x11");
        for (const char* name : { "WAYLAND_DISPLAY", "XAUTHORITY", "DISPLAY", "DBUS_SESSION_BUS_ADDRESS" })
            m_environment = g_environ_unsetenv(m_environment, name);
    }
    ~OrvaneProcess() {
        stop(5s);
        if (m_bus)
            g_dbus_connection_close_sync(m_bus.get(), nullptr, nullptr);
        kill(m_busDaemon);
        kill(m_xserver);
        if (::testing::Test::HasFailure()) {
            std::string text = log();
            text = text.size() > 8000 ? "…" + text.substr(text.size() - 8000) : text;
            std::fprintf(
                stderr, "---- orvane's output (%s) ----\n%s\n----\n", m_folder.c_str(), text.c_str());
        }
        g_strfreev(m_environment);
    }
    OrvaneProcess(const OrvaneProcess&) = delete;
    OrvaneProcess& operator=(const OrvaneProcess&) = delete;

    void setEnvironment(const std::string& name, const std::string& value) {
        m_environment = g_environ_setenv(m_environment, name.c_str(), value.c_str(), TRUE);
    }
    const char* getenv(const char* name) const { return g_environ_getenv(m_environment, name); }
    // Runs this orvane instead of the build tree's (an installed copy).
    void setBinary(const std::string& path) { m_binary = path; }
    void writeAccountsFile(const nlohmann::json& contents) {
        Files::makeFolder(dataHome() + "/Orvane");
        Files::replaceAtomically(accountsFilePath(), contents.dump(2));
    }
    // Puts the services' home pages at these addresses on the loopback
    // servers of tests and benchmarks (ORVANE_SERVICE_OVERRIDES).
    void overrideServices(const std::string& gmail, const std::string& outlook, const std::string& calendar) {
        nlohmann::json overrides;
        for (auto [name, home] :
            { std::pair { "gmail", gmail }, { "outlook", outlook }, { "calendar", calendar } })
            overrides[name] = { { "homeURL", home }, { "inAppHosts", { "127.0.0.1" } } };
        // A sleeping Gmail account reads the stand-in feed on the same server,
        // never Google's.
        std::string origin = gmail.substr(0, gmail.find('/', gmail.find("://") + 3));
        overrides["gmail"]["feedURL"] = origin + "/gmail/feed/atom";
        std::string path = m_folder + "/service-overrides.json";
        Files::replaceAtomically(path, overrides.dump());
        setEnvironment("ORVANE_SERVICE_OVERRIDES", path);
    }

    // Starts the X server and then the bus (the first time), and orvane with
    // these arguments; true once orvane owns app.orvane.Orvane. The bus
    // listens at $XDG_RUNTIME_DIR/bus and passes its environment, DISPLAY
    // included, to the orvane it starts for D-Bus activation.
    bool start(const std::vector<std::string>& arguments = {}) {
        if (!m_bus) {
            // -displayfd picks a free display number and prints it once the
            // server accepts connections.
            auto display = startServer(m_xserver, "display",
                { "Xvfb", "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp" });
            if (!display)
                return false;
            setEnvironment("DISPLAY", ":" + *display);
            auto address = startServer(m_busDaemon, "bus",
                { "dbus-daemon", "--session", "--nofork", "--address=unix:path=" + m_folder + "/runtime/bus",
                    "--print-address=1" });
            if (!address)
                return false;
            setEnvironment("DBUS_SESSION_BUS_ADDRESS", *address);
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address->c_str(),
                GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                    | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, nullptr));
            if (!m_bus)
                return false;
            g_dbus_connection_set_exit_on_close(m_bus.get(), FALSE);
        }
        std::vector<std::string> argv = { m_binary };
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        m_startedAt = g_get_monotonic_time();
        int log = g_open((m_folder + "/orvane.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        m_process = spawn(argv, log, true);
        return waitUntil([&] { return !isRunning() || nameHasOwner(kBusName); }, 30s) && isRunning();
    }
    bool isRunning() const { return running(m_process); }
    // When the last start() spawned orvane, in g_get_monotonic_time() units.
    int64_t startedAt() const { return m_startedAt; }
    int pid() const { return isRunning() ? atoi(g_subprocess_get_identifier(m_process.get())) : 0; }
    // app.quit, then SIGKILL when it does not end in time. True when it
    // ended through app.quit with status 0.
    bool stop(std::chrono::milliseconds timeout = 15s) {
        bool clean = isRunning() && activateAction("quit") && waitUntil([&] { return !isRunning(); }, timeout)
            && g_subprocess_get_if_exited(m_process.get())
            && g_subprocess_get_exit_status(m_process.get()) == 0;
        kill(m_process);
        return clean;
    }

    // org.gtk.Actions.Activate; returns once the action has run.
    bool activateAction(const std::string& name, GVariant* parameter = nullptr) {
        GVariant* parameters = parameter
            ? g_variant_new_parsed("(%s, [%v], @a{sv} {})", name.c_str(), parameter)
            : g_variant_new_parsed("(%s, @av [], @a{sv} {})", name.c_str());
        return bool(
            callAndWait(m_bus.get(), kBusName, kObjectPath, "org.gtk.Actions", "Activate", parameters));
    }
    // Whether the action is enabled; nothing when there is no such action or
    // no orvane to answer.
    std::optional<bool> actionEnabled(const std::string& name) {
        GVariantPtr reply = callAndWait(m_bus.get(), kBusName, kObjectPath, "org.gtk.Actions", "Describe",
            g_variant_new("(s)", name.c_str()));
        gboolean enabled = FALSE;
        if (reply)
            g_variant_get(reply.get(), "((bg@av))", &enabled, nullptr, nullptr);
        return reply ? std::optional<bool>(enabled) : std::nullopt;
    }
    // Runs `orvane URL` as a second process: true when it ended with status 0.
    bool openURL(const std::string& url) {
        auto result = run({ m_binary, url });
        return result && result->status == 0;
    }

    // accounts.json, parsed; {} when missing or unreadable.
    nlohmann::json accounts() const {
        auto text = Files::read(accountsFilePath(), 8 << 20).value_or("");
        auto parsed = nlohmann::json::parse(text, nullptr, false);
        return parsed.is_object() ? parsed : nlohmann::json::object();
    }
    std::string selectedAccountID() const { return accounts().value("selectedAccountID", ""); }
    std::vector<std::string> accountIDs() const {
        std::vector<std::string> ids;
        for (const auto& account : accounts().value("accounts", nlohmann::json::array()))
            ids.push_back(account.value("id", ""));
        return ids;
    }

    // Visible X windows titled exactly this (tooltips and popovers, which
    // GTK titles after the application too, are left out).
    std::vector<unsigned long> windowsTitled(const std::string& title) const {
        std::vector<unsigned long> windows;
        GCharPtr escaped(g_regex_escape_string(title.c_str(), -1));
        std::string pattern = "^" + std::string(escaped.get()) + "$";
        auto found = run({ "xdotool", "search", "--onlyvisible", "--name", pattern });
        std::istringstream lines(found ? found->output : "");
        for (std::string line; std::getline(lines, line);) {
            auto info = run({ "xwininfo", "-id", line });
            if (info && info->status == 0
                && info->output.find("Override Redirect State: yes") == std::string::npos)
                windows.push_back(std::stoul(line));
        }
        return windows;
    }
    // Where a window is on the screen.
    std::optional<Screenshot::Rect> geometry(unsigned long window) const {
        auto result = run({ "xdotool", "getwindowgeometry", "--shell", std::to_string(window) });
        Screenshot::Rect g;
        const char* format = "WINDOW=%*d X=%d Y=%d WIDTH=%d HEIGHT=%d";
        bool read = result && sscanf(result->output.c_str(), format, &g.x, &g.y, &g.width, &g.height) == 4;
        return read ? std::optional(g) : std::nullopt;
    }
    // True when xdotool did all it was told.
    bool xdotool(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "xdotool");
        auto result = run(arguments);
        return result && result->status == 0;
    }
    // Keyboard focus to the window, then the keys ("Return", "ctrl+shift+v").
    bool pressKeys(unsigned long window, const std::string& keys) const {
        return window && xdotool({ "windowfocus", std::to_string(window), "key", "--clearmodifiers", keys });
    }
    bool click(int x, int y) const {
        return xdotool({ "mousemove", std::to_string(x), std::to_string(y), "click", "1" });
    }
    // The whole screen, kept as <name>.png in ORVANE_SCREENSHOT_DIR when
    // that is set, else in folder().
    std::optional<Screenshot> screenshot(const std::string& name) const {
        const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR");
        std::string path = (keep && Files::makeFolder(keep) ? keep : m_folder) + "/" + name + ".png";
        auto result = run({ "import", "-window", "root", path });
        return result && result->status == 0 ? Screenshot::load(path) : std::nullopt;
    }

    // Runs a program with orvane's environment to its end; nothing when it
    // could not start or took longer than the timeout.
    std::optional<Result> run(
        const std::vector<std::string>& argv, std::chrono::milliseconds limit = 30s) const {
        std::string path = m_folder + "/run-" + std::to_string(++m_runs);
        auto process = spawn(argv, g_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
        if (!process || !waitUntil([&] { return !running(process); }, limit)) {
            kill(process);
            return std::nullopt;
        }
        Result result { -1, Files::read(path, 16 << 20).value_or("") };
        if (g_subprocess_get_if_exited(process.get()))
            result.status = g_subprocess_get_exit_status(process.get());
        g_remove(path.c_str());
        return result;
    }

    GDBusConnection* bus() const { return m_bus.get(); }
    bool nameHasOwner(const std::string& name) const {
        GVariantPtr reply = callAndWait(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "NameHasOwner", g_variant_new("(s)", name.c_str()), 2s);
        gboolean owned = FALSE;
        if (reply)
            g_variant_get(reply.get(), "(b)", &owned);
        return owned;
    }
    const std::string& folder() const { return m_folder; }
    std::string dataHome() const { return m_folder + "/data"; }
    std::string configHome() const { return m_folder + "/config"; }
    std::string accountsFilePath() const { return dataHome() + "/Orvane/accounts.json"; }
    // Everything orvane printed.
    std::string log() const { return Files::read(m_folder + "/orvane.log", 16 << 20).value_or(""); }

    static constexpr const char* kBusName = "app.orvane.Orvane";
    static constexpr const char* kObjectPath = "/app/orvane/Orvane";

private:
    // Starts a program with orvane's environment, its standard output to
    // `output` (a file descriptor it takes), its standard error there too
    // when asked, else nowhere.
    Ref<GSubprocess> spawn(const std::vector<std::string>& argv, int output, bool errors = false) const {
        auto launcher = adopt(g_subprocess_launcher_new(
            errors ? G_SUBPROCESS_FLAGS_STDERR_MERGE : G_SUBPROCESS_FLAGS_STDERR_SILENCE));
        g_subprocess_launcher_set_environ(launcher.get(), m_environment);
        g_subprocess_launcher_take_stdout_fd(launcher.get(), output);
        std::vector<const char*> args;
        for (const auto& arg : argv)
            args.push_back(arg.c_str());
        args.push_back(nullptr);
        return adopt(g_subprocess_launcher_spawnv(launcher.get(), args.data(), nullptr));
    }
    // Starts a server that prints where it can be reached (a display number,
    // a bus address) as its first line, and returns that line.
    std::optional<std::string> startServer(
        Ref<GSubprocess>& process, const std::string& name, const std::vector<std::string>& argv) {
        std::string path = m_folder + "/" + name;
        process = spawn(argv, g_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
        std::optional<std::string> line;
        waitUntil([&] {
            auto text = Files::read(path, 4096).value_or("");
            if (auto end = text.find('\n'); end != std::string::npos && end > 0)
                line = text.substr(0, end);
            return line || !running(process);
        }, 20s);
        return line;
    }
    // GSubprocess forgets its pid once the process has been reaped.
    static bool running(const Ref<GSubprocess>& process) {
        return process && g_subprocess_get_identifier(process.get());
    }
    static void kill(Ref<GSubprocess>& process) {
        if (running(process))
            g_subprocess_force_exit(process.get());
        waitUntil([&] { return !running(process); }, 5s);
        process.reset();
    }

    std::string m_folder = makeTempFolder("orvane-run");
    std::string m_binary = ORVANE_BINARY;
    GStrv m_environment = g_get_environ();
    Ref<GSubprocess> m_xserver, m_busDaemon, m_process;
    int64_t m_startedAt = 0;
    Ref<GDBusConnection> m_bus;
    mutable int m_runs = 0;
};

} // namespace orvane::test
