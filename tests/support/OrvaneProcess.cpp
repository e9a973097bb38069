#include "support/OrvaneProcess.h"

#include "Files.h"
#include "support/BusCall.h"
#include "support/FixtureServer.h"
#include "support/TestEnvironment.h"
#include "support/Wait.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <sstream>

namespace orvane::test {

namespace {

std::string makeFolder(const std::string& path) {
    g_mkdir_with_parents(path.c_str(), 0700);
    return path;
}

// Calls orvane's own object on the private bus (see callAndWait).
GVariantPtr callMethod(GDBusConnection* bus, const char* interface, const char* method, GVariant* parameters) {
    return callAndWait(bus, OrvaneProcess::kBusName, OrvaneProcess::kObjectPath, interface, method, parameters);
}

} // namespace

OrvaneProcess::OrvaneProcess()
    : m_folder(makeTempFolder("orvane-run"))
    , m_home(makeFolder(m_folder + "/home"))
    , m_dataHome(makeFolder(m_folder + "/data"))
    , m_configHome(makeFolder(m_folder + "/config"))
    , m_cacheHome(makeFolder(m_folder + "/cache")) {
    m_environment.set("HOME", m_home);
    m_environment.set("XDG_DATA_HOME", m_dataHome);
    m_environment.set("XDG_CONFIG_HOME", m_configHome);
    m_environment.set("XDG_CACHE_HOME", m_cacheHome);
    m_environment.set("XDG_RUNTIME_DIR", makeFolder(m_folder + "/runtime"));
    m_environment.set("GDK_BACKEND", "x11");
    m_environment.set("GSETTINGS_BACKEND", "memory");
    m_environment.set("GTK_A11Y", "none");
    m_environment.set("NO_AT_BRIDGE", "1");
    m_environment.unset("WAYLAND_DISPLAY");
    m_environment.unset("XAUTHORITY");
    for (const char* name : { "ORVANE_SERVICE_OVERRIDES", "ORVANE_PING_URL", "ORVANE_APPCAST_URL", "ORVANE_PRINT_TO_PDF" })
        m_environment.unset(name);
}

OrvaneProcess::~OrvaneProcess() {
    stop(5s);
    if (::testing::Test::HasFailure()) {
        std::string text = log();
        if (text.size() > 8000)
            text = "…" + text.substr(text.size() - 8000);
        std::fprintf(stderr, "---- orvane's output (%s) ----\n%s\n----\n", m_folder.c_str(), text.c_str());
    }
}

void OrvaneProcess::setEnvironment(const std::string& name, const std::string& value) {
    m_environment.set(name, value);
}

void OrvaneProcess::overrideServices(const FixtureServer& server, const std::string& gmailPath,
    const std::string& outlookPath, const std::string& calendarPath) {
    nlohmann::json hosts = nlohmann::json::array({ "127.0.0.1" });
    nlohmann::json overrides = {
        { "gmail", { { "homeURL", server.uri(gmailPath) }, { "inAppHosts", hosts } } },
        { "outlook", { { "homeURL", server.uri(outlookPath) }, { "inAppHosts", hosts } } },
        { "calendar", { { "homeURL", server.uri(calendarPath) }, { "inAppHosts", hosts } } },
    };
    std::string path = m_folder + "/service-overrides.json";
    Files::replaceAtomically(path, overrides.dump(2));
    m_environment.set("ORVANE_SERVICE_OVERRIDES", path);
}

void OrvaneProcess::writeAccountsFile(const nlohmann::json& contents) {
    makeFolder(m_dataHome + "/Orvane");
    Files::replaceAtomically(accountsFilePath(), contents.dump(2));
}

std::string OrvaneProcess::installStandInBrowser() {
    std::string record = m_folder + "/browser-opened.txt";
    std::string script = m_folder + "/stand-in-browser.sh";
    Files::replaceAtomically(script, "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + record + "'\n");
    g_chmod(script.c_str(), 0755);

    std::string applications = makeFolder(m_dataHome + "/applications");
    Files::replaceAtomically(applications + "/stand-in-browser.desktop",
        "[Desktop Entry]\nType=Application\nName=Stand-in Browser\nExec=" + script
            + " %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\nNoDisplay=true\n");
    Files::replaceAtomically(m_configHome + "/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/http=stand-in-browser.desktop\n"
        "x-scheme-handler/https=stand-in-browser.desktop\n");
    return record;
}

bool OrvaneProcess::start(std::chrono::milliseconds timeout, const std::vector<std::string>& arguments) {
    if (m_process.isRunning() || !m_desktop.start())
        return false;
    m_environment.set("DISPLAY", m_desktop.display());
    m_environment.set("DBUS_SESSION_BUS_ADDRESS", m_desktop.busAddress());
    std::vector<std::string> argv = { m_binary };
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    m_startedAt = g_get_monotonic_time();
    if (!m_process.start(argv, m_environment.list(), ChildProcess::Output::File, m_folder + "/orvane.log"))
        return false;
    return waitUntil([&] { return !m_process.isRunning() || m_desktop.nameHasOwner(kBusName); }, timeout)
        && m_process.isRunning();
}

bool OrvaneProcess::stop(std::chrono::milliseconds timeout) {
    bool clean = false;
    if (m_process.isRunning()) {
        activateAction("quit");
        clean = m_process.waitForExit(timeout) && m_process.exitStatus() == 0;
        m_process.stop(3s);
    }
    m_desktop.stop();
    return clean;
}

bool OrvaneProcess::activateAction(const std::string& name, GVariant* parameter) {
    if (!m_desktop.bus())
        return false;
    GVariantBuilder parameters;
    g_variant_builder_init(&parameters, G_VARIANT_TYPE("av"));
    if (parameter)
        g_variant_builder_add(&parameters, "v", parameter);
    GVariantBuilder platformData;
    g_variant_builder_init(&platformData, G_VARIANT_TYPE("a{sv}"));
    GVariant* arguments = g_variant_new("(sava{sv})", name.c_str(), &parameters, &platformData);
    return bool(callMethod(m_desktop.bus(), "org.gtk.Actions", "Activate", arguments));
}

std::optional<std::map<std::string, bool>> OrvaneProcess::actions() {
    if (!m_desktop.bus())
        return std::nullopt;
    GVariantPtr reply = callMethod(m_desktop.bus(), "org.gtk.Actions", "DescribeAll", nullptr);
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
    auto result = ChildProcess::run({ m_binary, url }, m_environment.list(), 30s);
    return result && result->status == 0;
}

std::string OrvaneProcess::accountsFilePath() const { return m_dataHome + "/Orvane/accounts.json"; }

nlohmann::json OrvaneProcess::accounts() const {
    auto bytes = Files::read(accountsFilePath(), 8 * 1024 * 1024);
    if (!bytes)
        return nullptr;
    auto parsed = nlohmann::json::parse(*bytes, nullptr, false);
    return parsed.is_discarded() ? nlohmann::json(nullptr) : parsed;
}

std::optional<std::string> OrvaneProcess::selectedAccountID() const {
    auto file = accounts();
    if (!file.is_object() || !file.contains("selectedAccountID") || !file["selectedAccountID"].is_string())
        return std::nullopt;
    return file["selectedAccountID"].get<std::string>();
}

std::optional<ChildProcess::Result> OrvaneProcess::runTool(const std::vector<std::string>& argv) const {
    return ChildProcess::run(argv, m_environment.list(), 20s);
}

std::vector<unsigned long> OrvaneProcess::windowsTitled(const std::string& title) const {
    std::vector<unsigned long> windows;
    std::string pattern = "^" + std::string(GCharPtr(g_regex_escape_string(title.c_str(), -1)).get()) + "$";
    auto result = runTool({ "xdotool", "search", "--onlyvisible", "--name", pattern });
    if (!result)
        return windows;
    std::istringstream lines(result->output);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty())
            continue;
        // GTK titles its tooltips and popovers after the application too;
        // they are override-redirect surfaces, not windows.
        auto info = runTool({ "xwininfo", "-id", line });
        if (info && info->status == 0 && info->output.find("Override Redirect State: yes") != std::string::npos)
            continue;
        windows.push_back(std::stoul(line));
    }
    return windows;
}

std::optional<OrvaneProcess::Geometry> OrvaneProcess::geometry(unsigned long window) const {
    if (!window)
        return std::nullopt;
    auto result = runTool({ "xdotool", "getwindowgeometry", "--shell", std::to_string(window) });
    if (!result || result->status != 0)
        return std::nullopt;
    Geometry geometry;
    std::istringstream lines(result->output);
    for (std::string line; std::getline(lines, line);) {
        auto equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        std::string key = line.substr(0, equals);
        int value = atoi(line.c_str() + equals + 1);
        if (key == "X")
            geometry.x = value;
        else if (key == "Y")
            geometry.y = value;
        else if (key == "WIDTH")
            geometry.width = value;
        else if (key == "HEIGHT")
            geometry.height = value;
    }
    return geometry;
}

bool OrvaneProcess::pressKeys(unsigned long window, const std::string& keys) const {
    if (!window)
        return false;
    auto result = runTool({ "xdotool", "windowfocus", std::to_string(window), "key", "--clearmodifiers", keys });
    return result && result->status == 0;
}

bool OrvaneProcess::click(int x, int y) const {
    auto result = runTool({ "xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "1" });
    return result && result->status == 0;
}

std::optional<Screenshot> OrvaneProcess::screenshot(const std::string& name) const {
    std::string path = m_folder + "/" + name + ".png";
    auto result = runTool({ "import", "-window", "root", path });
    if (!result || result->status != 0)
        return std::nullopt;
    if (const char* keep = g_getenv("ORVANE_SCREENSHOT_DIR"); keep && *keep) {
        g_mkdir_with_parents(keep, 0755);
        if (auto bytes = Files::read(path, 64 * 1024 * 1024))
            Files::replaceAtomically(std::string(keep) + "/" + name + ".png", *bytes);
    }
    return Screenshot::load(path);
}

std::string OrvaneProcess::log() const {
    return Files::read(m_folder + "/orvane.log", 16 * 1024 * 1024).value_or("");
}

} // namespace orvane::test
