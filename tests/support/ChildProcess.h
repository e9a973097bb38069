#pragma once

#include "GRef.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane::test {

using namespace std::chrono_literals;

// A program run by a test (Xvfb, dbus-daemon, orvane, a command-line tool).
// Waiting runs the default main context, so servers in the test keep
// answering meanwhile. The destructor stops a program still running.
class ChildProcess {
public:
    enum class Output { Pipe, File };

    struct Result {
        int status = -1;       // exit status; -1 when it did not exit normally
        std::string output;    // standard output
    };

    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts argv[0] (looked up in PATH) with exactly this environment. With
    // Output::Pipe standard output can be read by readLine(); with
    // Output::File both standard output and error go to logPath.
    bool start(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
        Output output = Output::File, const std::string& logPath = "/dev/null");

    // The next line of standard output (Output::Pipe), or nothing on timeout
    // or end of output.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = 10s);

    bool isRunning() const;
    bool waitForExit(std::chrono::milliseconds timeout);
    // Exit status once it has exited normally, else -1.
    int exitStatus() const;
    int pid() const { return m_pid; }
    void sendSignal(int signal);
    // SIGTERM, and SIGKILL when it is still there after the grace period.
    void stop(std::chrono::milliseconds grace = 5s);

    // Runs a program to its end and captures its standard output; nothing
    // when it cannot start or does not end in time (it is then killed).
    static std::optional<Result> run(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
        std::chrono::milliseconds timeout = 30s);

private:
    struct State {
        bool exited = false;
        int status = -1;
    };

    Ref<GSubprocess> m_process;
    Ref<GDataInputStream> m_stdout;
    Ref<GCancellable> m_cancellable;
    std::shared_ptr<State> m_state = std::make_shared<State>();
    int m_pid = 0;
};

} // namespace orvane::test
