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

#include <map>
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
    struct Geometry {
        int x = 0, y = 0, width = 0, height = 0;
    };
    struct Result {
        int status = -1; // -1 when it did not exit normally
        std::string output;
    };

    OrvaneProcess() {
        for (const auto& [name, folder] : { std::pair { "HOME", "home" }, { "XDG_DATA_HOME", "data" },
                 { "XDG_CONFIG_HOME", "config" }, { "XDG_CACHE_HOME", "cache" }, { "XDG_RUNTIME_DIR", "runtime" } }) {
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
            std::fprintf(stderr, "---- orvane's output (%s) ----\n%s\n----\n", m_folder.c_str(), text.c_str());
        }
        g_strfreev(m_environment);
    }
    OrvaneProcess(const OrvaneProcess&) = delete;
    OrvaneProcess& operator=(const OrvaneProcess&) = delete;

    void setEnvironment(const std::string& name, const std::string& value) {
        m_environment = g_environ_setenv(m_environment, name.c_str(), value.c_str(), TRUE);
    }
    const char* getenv(const char* name) const { return g_environ_getenv(m_environment, name); }
    // NAME=value, as orvane gets them.
    std::vector<std::string> environment() const { return { m_environment, m_environment + g_strv_length(m_environment) }; }
    // Runs this orvane instead of the build tree's (an installed copy).
    void setBinary(const std::string& path) { m_binary = path; }
    void writeAccountsFile(const nlohmann::json& contents) {
        Files::makeFolder(dataHome() + "/Orvane");
        Files::replaceAtomically(accountsFilePath(), contents.dump(2));
    }

    // Starts the X server and the bus (the first time) and orvane with these
    // arguments; true once orvane owns app.orvane.Orvane.
    bool start(const std::vector<std::string>& arguments = {}) {
        if (!m_bus) {
            // -displayfd picks a free display number and prints it once the
            // server accepts connections.
            auto display = startServer(m_xserver, { "Xvfb", "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp" }, "display");
            auto address = startServer(m_busDaemon, { "dbus-daemon", "--session", "--nofork", "--print-address=1" }, "bus");
            if (!display || !address)
                return false;
            setEnvironment("DISPLAY", ":" + *display);
            setEnvironment("DBUS_SESSION_BUS_ADDRESS", *address);
            m_bus = adopt(g_dbus_connection_new_for_address_sync(address->c_str(),
                GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, nullptr));
            if (!m_bus)
                return false;
            g_dbus_connection_set_exit_on_close(m_bus.get(), FALSE);
        }
        std::vector<std::string> argv = { m_binary };
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        m_startedAt = g_get_monotonic_time();
        m_process = spawn(argv);
        return waitUntil([&] { return !isRunning() || nameHasOwner(kBusName); }, 30s) && isRunning();
    }
    bool isRunning() const { return running(m_process); }
    // When the last start() spawned orvane, in g_get_monotonic_time() units.
    int64_t startedAt() const { return m_startedAt; }
    // Puts the services' home pages at these addresses, with their host as
    // the only in-app one (ORVANE_SERVICE_OVERRIDES).
    void overrideServices(const std::string& gmail, const std::string& outlook, const std::string& calendar) {
        auto service = [](const std::string& address) {
            GUri* uri = g_uri_parse(address.c_str(), G_URI_FLAGS_NONE, nullptr);
            std::string host = uri && g_uri_get_host(uri) ? g_uri_get_host(uri) : "";
            if (uri)
                g_uri_unref(uri);
            return nlohmann::json { { "homeURL", address }, { "inAppHosts", { host } } };
        };
        std::string path = m_folder + "/service-overrides.json";
        Files::replaceAtomically(path, nlohmann::json { { "gmail", service(gmail) }, { "outlook", service(outlook) },
            { "calendar", service(calendar) } }.dump());
        setEnvironment("ORVANE_SERVICE_OVERRIDES", path);
    }
    int pid() const { return isRunning() ? atoi(g_subprocess_get_identifier(m_process.get())) : 0; }
    // app.quit, then SIGKILL when it does not end in time. True when it
    // ended through app.quit with status 0.
    bool stop(std::chrono::milliseconds timeout = 15s) {
        bool clean = isRunning() && activateAction("quit") && waitUntil([&] { return !isRunning(); }, timeout)
            && g_subprocess_get_if_exited(m_process.get()) && g_subprocess_get_exit_status(m_process.get()) == 0;
        kill(m_process);
        return clean;
    }

    // org.gtk.Actions.Activate; returns once the action has run.
    bool activateAction(const std::string& name, GVariant* parameter = nullptr) {
        GVariantBuilder parameters;
        g_variant_builder_init(&parameters, G_VARIANT_TYPE("av"));
        if (parameter)
            g_variant_builder_add(&parameters, "v", parameter);
        return bool(callAndWait(m_bus.get(), kBusName, kObjectPath, "org.gtk.Actions", "Activate",
            g_variant_new("(sava{sv})", name.c_str(), &parameters, nullptr)));
    }
    // org.gtk.Actions.DescribeAll: action name -> enabled.
    std::optional<std::map<std::string, bool>> actions() {
        GVariantPtr reply = callAndWait(m_bus.get(), kBusName, kObjectPath, "org.gtk.Actions", "DescribeAll", nullptr);
        if (!reply)
            return std::nullopt;
        std::map<std::string, bool> result;
        GVariantIter* iter = nullptr;
        g_variant_get(reply.get(), "(a{s(bgav)})", &iter);
        const char* name = nullptr;
        gboolean enabled = FALSE;
        while (g_variant_iter_next(iter, "{&s(bg@av)}", &name, &enabled, nullptr, nullptr))
            result[name] = enabled;
        g_variant_iter_free(iter);
        return result;
    }
    // Runs `orvane URL` as a second process: true when it ended with status 0.
    bool openURL(const std::string& url) {
        auto result = run({ m_binary, url });
        return result && result->status == 0;
    }

    // accounts.json, parsed; null when missing or unreadable.
    nlohmann::json accounts() const {
        auto parsed = nlohmann::json::parse(Files::read(accountsFilePath(), 8 << 20).value_or(""), nullptr, false);
        return parsed.is_discarded() ? nlohmann::json(nullptr) : parsed;
    }
    std::string selectedAccountID() const { return accounts().is_object() ? accounts().value("selectedAccountID", "") : ""; }
    std::vector<std::string> accountIDs() const {
        std::vector<std::string> ids;
        auto file = accounts();
        for (const auto& account : file.is_object() && file["accounts"].is_array() ? file["accounts"] : nlohmann::json::array())
            ids.push_back(account.value("id", ""));
        return ids;
    }

    // Visible X windows titled exactly this (tooltips and popovers, which
    // GTK titles after the application too, are left out).
    std::vector<unsigned long> windowsTitled(const std::string& title) const {
        std::vector<unsigned long> windows;
        GCharPtr escaped(g_regex_escape_string(title.c_str(), -1));
        auto found = run({ "xdotool", "search", "--onlyvisible", "--name", "^" + std::string(escaped.get()) + "$" });
        std::istringstream lines(found ? found->output : "");
        for (std::string line; std::getline(lines, line);) {
            auto info = run({ "xwininfo", "-id", line });
            if (info && info->status == 0 && info->output.find("Override Redirect State: yes") == std::string::npos)
                windows.push_back(std::stoul(line));
        }
        return windows;
    }
    std::optional<Geometry> geometry(unsigned long window) const {
        auto result = run({ "xdotool", "getwindowgeometry", "--shell", std::to_string(window) });
        Geometry g;
        if (!result || sscanf(result->output.c_str(), "WINDOW=%*d X=%d Y=%d WIDTH=%d HEIGHT=%d", &g.x, &g.y, &g.width, &g.height) != 4)
            return std::nullopt;
        return g;
    }
    // Keyboard focus to the window, then the keys ("Return", "ctrl+shift+v").
    bool pressKeys(unsigned long window, const std::string& keys) const {
        auto result = run({ "xdotool", "windowfocus", std::to_string(window), "key", "--clearmodifiers", keys });
        return window && result && result->status == 0;
    }
    bool click(int x, int y) const {
        auto result = run({ "xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "1" });
        return result && result->status == 0;
    }
    // The whole screen, kept as <name>.png in folder() and, when
    // ORVANE_SCREENSHOT_DIR is set, there too.
    std::optional<Screenshot> screenshot(const std::string& name) const {
        std::string path = m_folder + "/" + name + ".png";
        auto result = run({ "import", "-window", "root", path });
        if (!result || result->status != 0)
            return std::nullopt;
        if (const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR"); keep && *keep && Files::makeFolder(keep))
            Files::replaceAtomically(std::string(keep) + "/" + name + ".png", Files::read(path, 64 << 20).value_or(""));
        return Screenshot::load(path);
    }

    // Runs a program with orvane's environment to its end.
    std::optional<Result> run(const std::vector<std::string>& argv, std::chrono::milliseconds timeout = 30s) const {
        auto process = spawnWith(argv, -1);
        auto state = std::make_shared<std::pair<bool, std::optional<std::string>>>(); // done, output
        if (!process)
            return std::nullopt;
        g_subprocess_communicate_utf8_async(process.get(), nullptr, nullptr, +[](GObject* source, GAsyncResult* result, gpointer data) {
            std::unique_ptr<std::shared_ptr<std::pair<bool, std::optional<std::string>>>> state(
                static_cast<std::shared_ptr<std::pair<bool, std::optional<std::string>>>*>(data));
            char* out = nullptr;
            if (g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &out, nullptr, nullptr))
                (*state)->second = out ? out : "";
            g_free(out);
            (*state)->first = true;
        }, new std::shared_ptr(state));
        if (!waitUntil([&] { return state->first; }, timeout))
            g_subprocess_force_exit(process.get());
        // The output closes first; the exit follows.
        if (!waitUntil([&] { return state->first; }, 5s) || !state->second || !g_subprocess_wait(process.get(), nullptr, nullptr))
            return std::nullopt;
        return Result { g_subprocess_get_if_exited(process.get()) ? g_subprocess_get_exit_status(process.get()) : -1, *state->second };
    }
    // Starts a program with orvane's environment, its output in the log.
    Ref<GSubprocess> spawn(const std::vector<std::string>& argv) const {
        return spawnWith(argv, g_open((m_folder + "/orvane.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), true);
    }

    GDBusConnection* bus() const { return m_bus.get(); }
    bool nameHasOwner(const std::string& name) const {
        GVariantPtr reply = callAndWait(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "NameHasOwner", g_variant_new("(s)", name.c_str()), 2s);
        gboolean owned = FALSE;
        if (reply)
            g_variant_get(reply.get(), "(b)", &owned);
        return owned;
    }
    const std::string& folder() const { return m_folder; }
    std::string dataHome() const { return m_folder + "/data"; }
    std::string configHome() const { return m_folder + "/config"; }
    std::string accountsFilePath() const { return dataHome() + "/Orvane/accounts.json"; }
    // Everything orvane and the programs spawned printed.
    std::string log() const { return Files::read(m_folder + "/orvane.log", 16 << 20).value_or(""); }

    static constexpr const char* kBusName = "app.orvane.Orvane";
    static constexpr const char* kObjectPath = "/app/orvane/Orvane";

private:
    // Standard output goes to `output`, a pipe when -1; standard error with
    // it when asked, else nowhere.
    Ref<GSubprocess> spawnWith(const std::vector<std::string>& argv, int output, bool errors = false) const {
        auto launcher = adopt(g_subprocess_launcher_new(GSubprocessFlags((output < 0 ? G_SUBPROCESS_FLAGS_STDOUT_PIPE : 0)
            | (errors ? G_SUBPROCESS_FLAGS_STDERR_MERGE : G_SUBPROCESS_FLAGS_STDERR_SILENCE))));
        g_subprocess_launcher_set_environ(launcher.get(), m_environment);
        if (output >= 0)
            g_subprocess_launcher_take_stdout_fd(launcher.get(), output);
        std::vector<const char*> args;
        for (const auto& arg : argv)
            args.push_back(arg.c_str());
        args.push_back(nullptr);
        return adopt(g_subprocess_launcher_spawnv(launcher.get(), args.data(), nullptr));
    }
    // Starts a server that prints where it can be reached (a display number,
    // a bus address) as its first line, and returns that line.
    std::optional<std::string> startServer(Ref<GSubprocess>& process, const std::vector<std::string>& argv, const std::string& name) {
        std::string path = m_folder + "/" + name;
        process = spawnWith(argv, g_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
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
    static bool running(const Ref<GSubprocess>& process) { return process && g_subprocess_get_identifier(process.get()); }
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
};

} // namespace orvane::test
