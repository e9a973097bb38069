#pragma once

#include "GRef.h"
#include "support/Screenshot.h"

#include <gio/gio.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

using namespace std::chrono_literals;

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


    OrvaneProcess();
    ~OrvaneProcess();
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
    void writeAccountsFile(const nlohmann::json& contents);

    // Starts the X server and the bus (the first time) and orvane with these
    // arguments; true once orvane owns app.orvane.Orvane.
    bool start(const std::vector<std::string>& arguments = {});
    bool isRunning() const;
    int pid() const;
    // app.quit, then SIGKILL when it does not end in time. True when it
    // ended through app.quit with status 0.
    bool stop(std::chrono::milliseconds timeout = 15s);

    // org.gtk.Actions.Activate; returns once the action has run.
    bool activateAction(const std::string& name, GVariant* parameter = nullptr);
    // org.gtk.Actions.DescribeAll: action name -> enabled.
    std::optional<std::map<std::string, bool>> actions();
    // Runs `orvane URL` as a second process: true when it ended with status 0.
    bool openURL(const std::string& url);

    // accounts.json, parsed; null when missing or unreadable.
    nlohmann::json accounts() const;
    std::string selectedAccountID() const { return accounts().is_object() ? accounts().value("selectedAccountID", "") : ""; }
    std::vector<std::string> accountIDs() const;

    // Visible X windows titled exactly this (tooltips and popovers, which
    // GTK titles after the application too, are left out).
    std::vector<unsigned long> windowsTitled(const std::string& title) const;
    std::optional<Geometry> geometry(unsigned long window) const;
    // Keyboard focus to the window, then the keys ("Return", "ctrl+shift+v").
    bool pressKeys(unsigned long window, const std::string& keys) const;
    bool click(int x, int y) const;
    // The whole screen, kept as <name>.png in folder() and, when
    // ORVANE_SCREENSHOT_DIR is set, there too.
    std::optional<Screenshot> screenshot(const std::string& name) const;

    // Runs a program with orvane's environment to its end.
    std::optional<Result> run(const std::vector<std::string>& argv, std::chrono::milliseconds timeout = 30s) const;
    // Starts a program with orvane's environment, its output in the log.
    Ref<GSubprocess> spawn(const std::vector<std::string>& argv) const;

    GDBusConnection* bus() const { return m_bus.get(); }
    bool nameHasOwner(const std::string& name) const;
    const std::string& folder() const { return m_folder; }
    std::string dataHome() const { return m_folder + "/data"; }
    std::string configHome() const { return m_folder + "/config"; }
    std::string accountsFilePath() const { return dataHome() + "/Orvane/accounts.json"; }
    // Everything orvane and the programs spawned printed.
    std::string log() const;

    static constexpr const char* kBusName = "app.orvane.Orvane";
    static constexpr const char* kObjectPath = "/app/orvane/Orvane";

private:
    std::string m_folder;
    std::string m_binary = ORVANE_BINARY;
    GStrv m_environment = nullptr;
    Ref<GSubprocess> m_xserver;
    Ref<GSubprocess> m_busDaemon;
    Ref<GSubprocess> m_process;
    Ref<GDBusConnection> m_bus;
};

} // namespace orvane::test
