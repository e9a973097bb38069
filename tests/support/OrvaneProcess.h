#pragma once

#include "support/ChildProcess.h"
#include "support/PrivateDesktop.h"
#include "support/ProcessEnvironment.h"
#include "support/Screenshot.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

class FixtureServer;

// The real orvane binary (ORVANE_BINARY) run the way a user runs it, on a
// private X server and session bus (PrivateDesktop) with fresh, empty HOME
// and XDG folders of its own. Tests drive it through its application actions
// over D-Bus and through `orvane URL`, and look at it through accounts.json,
// the X windows and screenshots. The destructor stops it.
class OrvaneProcess {
public:
    struct Geometry {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    OrvaneProcess();
    ~OrvaneProcess();
    OrvaneProcess(const OrvaneProcess&) = delete;
    OrvaneProcess& operator=(const OrvaneProcess&) = delete;

    // Set-up before start().
    void setEnvironment(const std::string& name, const std::string& value);
    // Runs this orvane instead of the build tree's (an installed copy).
    void setBinary(const std::string& path) { m_binary = path; }
    // Writes an ORVANE_SERVICE_OVERRIDES file that puts the three services'
    // home pages on the server (paths such as "/gmail/"), with 127.0.0.1 as
    // their only in-app host.
    void overrideServices(const FixtureServer& server, const std::string& gmailPath,
        const std::string& outlookPath, const std::string& calendarPath);
    // Writes accounts.json as Orvane would find it at start.
    void writeAccountsFile(const nlohmann::json& contents);
    // Makes a stand-in browser the default for http and https links; each URL
    // it is given is appended as a line to the returned file.
    std::string installStandInBrowser();

    // Starts orvane and waits until it owns app.orvane.Orvane on the bus.
    // `arguments` follow the program name (`orvane 'mailto:…'` starting it).
    bool start(std::chrono::milliseconds timeout = 30s, const std::vector<std::string>& arguments = {});
    bool isRunning() const { return m_process.isRunning(); }
    // g_get_monotonic_time() right before orvane was executed.
    int64_t startedAt() const { return m_startedAt; }
    int pid() const { return m_process.pid(); }
    // app.quit, then SIGTERM and SIGKILL when it does not end in time.
    // True when it ended through app.quit.
    bool stop(std::chrono::milliseconds timeout = 15s);

    // org.gtk.Actions.Activate on /app/orvane/Orvane; returns once the
    // action has run. parameter is sunk when floating.
    bool activateAction(const std::string& name, GVariant* parameter = nullptr);
    // org.gtk.Actions.DescribeAll: action name -> enabled.
    std::optional<std::map<std::string, bool>> actions();
    // Runs `orvane URL` as a second process; true when it handed the URL
    // over and ended with status 0.
    bool openURL(const std::string& url);

    // accounts.json, parsed; null when missing or unreadable.
    nlohmann::json accounts() const;
    std::optional<std::string> selectedAccountID() const;

    // Visible X windows whose title is exactly this (tooltips and popovers,
    // which GTK titles after the application, are left out).
    std::vector<unsigned long> windowsTitled(const std::string& title) const;
    std::optional<Geometry> geometry(unsigned long window) const;
    // Keyboard focus to the window, then the keys (xdotool names: "Return",
    // "ctrl+shift+v").
    bool pressKeys(unsigned long window, const std::string& keys) const;
    bool click(int x, int y) const;

    // A picture of the whole screen, stored as <name>.png in this run's
    // folder and, when ORVANE_SCREENSHOT_DIR is set, copied there too.
    std::optional<Screenshot> screenshot(const std::string& name) const;

    const std::string& folder() const { return m_folder; }
    const std::string& home() const { return m_home; }
    const std::string& dataHome() const { return m_dataHome; }
    const std::string& configHome() const { return m_configHome; }
    const std::string& cacheHome() const { return m_cacheHome; }
    std::string accountsFilePath() const;
    const PrivateDesktop& desktop() const { return m_desktop; }
    // Everything orvane printed.
    std::string log() const;
    // The environment orvane runs with (also for tools on its display).
    std::vector<std::string> environment() const { return m_environment.list(); }

    static constexpr const char* kBusName = "app.orvane.Orvane";
    static constexpr const char* kObjectPath = "/app/orvane/Orvane";

    // Runs a program (xdotool, import…) on orvane's display.
    std::optional<ChildProcess::Result> runTool(const std::vector<std::string>& argv) const;

private:

    PrivateDesktop m_desktop;
    ChildProcess m_process;
    ProcessEnvironment m_environment;
    std::string m_folder;
    std::string m_home;
    std::string m_dataHome;
    std::string m_configHome;
    std::string m_cacheHome;
    int64_t m_startedAt = 0;
    std::string m_binary = ORVANE_BINARY;
};

} // namespace orvane::test
