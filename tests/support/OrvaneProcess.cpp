#include "support/OrvaneProcess.h"

#include "Files.h"
#include "support/BusCall.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <fcntl.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <sstream>

namespace orvane::test {

namespace {

// Standard output goes to `output`, a pipe when -1; standard error with it
// when asked, else nowhere.
Ref<GSubprocess> spawnWith(const std::vector<std::string>& argv, GStrv environment, int output, bool errors = false) {
    auto launcher = adopt(g_subprocess_launcher_new(GSubprocessFlags((output < 0 ? G_SUBPROCESS_FLAGS_STDOUT_PIPE : 0)
        | (errors ? G_SUBPROCESS_FLAGS_STDERR_MERGE : G_SUBPROCESS_FLAGS_STDERR_SILENCE))));
    g_subprocess_launcher_set_environ(launcher.get(), environment);
    if (output >= 0)
        g_subprocess_launcher_take_stdout_fd(launcher.get(), output);
    std::vector<const char*> args;
    for (const auto& arg : argv)
        args.push_back(arg.c_str());
    args.push_back(nullptr);
    return adopt(g_subprocess_launcher_spawnv(launcher.get(), args.data(), nullptr));
}

// GSubprocess forgets its pid once the process has been reaped.
bool running(const Ref<GSubprocess>& process) { return process && g_subprocess_get_identifier(process.get()); }

void kill(Ref<GSubprocess>& process) {
    if (running(process))
        g_subprocess_force_exit(process.get());
    waitUntil([&] { return !running(process); }, 5s);
    process.reset();
}

// Starts a server that prints where it can be reached (a display number, a
// bus address) as its first line, and returns that line.
std::optional<std::string> startServer(Ref<GSubprocess>& process, const std::vector<std::string>& argv, GStrv environment,
    const std::string& path) {
    process = spawnWith(argv, environment, g_open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    std::optional<std::string> line;
    waitUntil([&] {
        auto text = Files::read(path, 4096).value_or("");
        if (auto end = text.find('\n'); end != std::string::npos && end > 0)
            line = text.substr(0, end);
        return line || !running(process);
    }, 20s);
    return line;
}

} // namespace

OrvaneProcess::OrvaneProcess()
    : m_folder(makeTempFolder("orvane-run"))
    , m_environment(g_get_environ()) {
    for (const auto& [name, folder] : { std::pair { "HOME", "home" }, { "XDG_DATA_HOME", "data" },
             { "XDG_CONFIG_HOME", "config" }, { "XDG_CACHE_HOME", "cache" }, { "XDG_RUNTIME_DIR", "runtime" } }) {
        Files::makeFolder(m_folder + "/" + folder);
        setEnvironment(name, m_folder + "/" + folder);
    }
    setEnvironment("GDK_BACKEND", "x11");
    for (const char* name : { "WAYLAND_DISPLAY", "XAUTHORITY", "DISPLAY", "DBUS_SESSION_BUS_ADDRESS" })
        m_environment = g_environ_unsetenv(m_environment, name);
}

OrvaneProcess::~OrvaneProcess() {
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

void OrvaneProcess::writeAccountsFile(const nlohmann::json& contents) {
    Files::makeFolder(dataHome() + "/Orvane");
    Files::replaceAtomically(accountsFilePath(), contents.dump(2));
}

bool OrvaneProcess::start(const std::vector<std::string>& arguments) {
    if (!m_bus) {
        // -displayfd picks a free display number and prints it once the
        // server accepts connections.
        auto display = startServer(m_xserver, { "Xvfb", "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp" },
            m_environment, m_folder + "/display");
        auto address = startServer(m_busDaemon, { "dbus-daemon", "--session", "--nofork", "--print-address=1" },
            m_environment, m_folder + "/bus");
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
    m_process = spawn(argv);
    return waitUntil([&] { return !isRunning() || nameHasOwner(kBusName); }, 30s) && isRunning();
}

Ref<GSubprocess> OrvaneProcess::spawn(const std::vector<std::string>& argv) const {
    std::string log = m_folder + "/orvane.log";
    return spawnWith(argv, m_environment, g_open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), true);
}

bool OrvaneProcess::isRunning() const { return running(m_process); }

int OrvaneProcess::pid() const { return isRunning() ? atoi(g_subprocess_get_identifier(m_process.get())) : 0; }

bool OrvaneProcess::stop(std::chrono::milliseconds timeout) {
    bool clean = isRunning() && activateAction("quit") && waitUntil([&] { return !isRunning(); }, timeout)
        && g_subprocess_get_if_exited(m_process.get()) && g_subprocess_get_exit_status(m_process.get()) == 0;
    kill(m_process);
    return clean;
}

bool OrvaneProcess::nameHasOwner(const std::string& name) const {
    GVariantPtr reply = callAndWait(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", name.c_str()), 2s);
    gboolean owned = FALSE;
    if (reply)
        g_variant_get(reply.get(), "(b)", &owned);
    return owned;
}

bool OrvaneProcess::activateAction(const std::string& name, GVariant* parameter) {
    GVariantBuilder parameters;
    g_variant_builder_init(&parameters, G_VARIANT_TYPE("av"));
    if (parameter)
        g_variant_builder_add(&parameters, "v", parameter);
    return bool(callAndWait(m_bus.get(), kBusName, kObjectPath, "org.gtk.Actions", "Activate",
        g_variant_new("(sava{sv})", name.c_str(), &parameters, nullptr)));
}

std::optional<std::map<std::string, bool>> OrvaneProcess::actions() {
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

bool OrvaneProcess::openURL(const std::string& url) {
    auto result = run({ m_binary, url });
    return result && result->status == 0;
}

nlohmann::json OrvaneProcess::accounts() const {
    auto parsed = nlohmann::json::parse(Files::read(accountsFilePath(), 8 << 20).value_or(""), nullptr, false);
    return parsed.is_discarded() ? nlohmann::json(nullptr) : parsed;
}

std::vector<std::string> OrvaneProcess::accountIDs() const {
    std::vector<std::string> ids;
    auto file = accounts();
    for (const auto& account : file.is_object() && file["accounts"].is_array() ? file["accounts"] : nlohmann::json::array())
        ids.push_back(account.value("id", ""));
    return ids;
}

std::optional<OrvaneProcess::Result> OrvaneProcess::run(const std::vector<std::string>& argv,
    std::chrono::milliseconds timeout) const {
    auto process = spawnWith(argv, m_environment, -1);
    struct State {
        bool done = false;
        std::optional<std::string> output;
    };
    auto state = std::make_shared<State>();
    if (!process)
        return std::nullopt;
    g_subprocess_communicate_utf8_async(process.get(), nullptr, nullptr, +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State>*>(data));
        char* out = nullptr;
        if (g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &out, nullptr, nullptr))
            (*state)->output = out ? out : "";
        g_free(out);
        (*state)->done = true;
    }, new std::shared_ptr<State>(state));
    if (!waitUntil([&] { return state->done; }, timeout))
        g_subprocess_force_exit(process.get());
    // The output closes first; the exit follows.
    if (!waitUntil([&] { return state->done; }, 5s) || !state->output || !g_subprocess_wait(process.get(), nullptr, nullptr))
        return std::nullopt;
    return Result { g_subprocess_get_if_exited(process.get()) ? g_subprocess_get_exit_status(process.get()) : -1, *state->output };
}

std::vector<unsigned long> OrvaneProcess::windowsTitled(const std::string& title) const {
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

std::optional<OrvaneProcess::Geometry> OrvaneProcess::geometry(unsigned long window) const {
    auto result = run({ "xdotool", "getwindowgeometry", "--shell", std::to_string(window) });
    Geometry g;
    if (!result || sscanf(result->output.c_str(), "WINDOW=%*d X=%d Y=%d WIDTH=%d HEIGHT=%d", &g.x, &g.y, &g.width, &g.height) != 4)
        return std::nullopt;
    return g;
}

bool OrvaneProcess::pressKeys(unsigned long window, const std::string& keys) const {
    auto result = run({ "xdotool", "windowfocus", std::to_string(window), "key", "--clearmodifiers", keys });
    return window && result && result->status == 0;
}

bool OrvaneProcess::click(int x, int y) const {
    auto result = run({ "xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "1" });
    return result && result->status == 0;
}

std::optional<Screenshot> OrvaneProcess::screenshot(const std::string& name) const {
    std::string path = m_folder + "/" + name + ".png";
    auto result = run({ "import", "-window", "root", path });
    if (!result || result->status != 0)
        return std::nullopt;
    if (const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR"); keep && *keep && Files::makeFolder(keep))
        Files::replaceAtomically(std::string(keep) + "/" + name + ".png", Files::read(path, 64 << 20).value_or(""));
    return Screenshot::load(path);
}

std::string OrvaneProcess::log() const { return Files::read(m_folder + "/orvane.log", 16 << 20).value_or(""); }

} // namespace orvane::test
