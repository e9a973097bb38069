#include "support/ChildProcess.h"

#include "support/Wait.h"

#include <csignal>

namespace orvane::test {

namespace {

struct ReadState {
    bool done = false;
    std::optional<std::string> line;
};

std::vector<const char*> cStrings(const std::vector<std::string>& list) {
    std::vector<const char*> result;
    for (const auto& item : list)
        result.push_back(item.c_str());
    result.push_back(nullptr);
    return result;
}

} // namespace

ChildProcess::~ChildProcess() {
    if (isRunning())
        stop(2s);
    if (m_cancellable)
        g_cancellable_cancel(m_cancellable.get());
}

bool ChildProcess::start(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
    Output output, const std::string& logPath) {
    if (isRunning() || argv.empty())
        return false;
    if (m_cancellable)
        g_cancellable_cancel(m_cancellable.get());
    m_process.reset();
    m_stdout.reset();
    m_state = std::make_shared<State>();
    auto flags = output == Output::Pipe ? GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE)
                                        : G_SUBPROCESS_FLAGS_STDERR_MERGE;
    auto launcher = adopt(g_subprocess_launcher_new(flags));
    auto env = cStrings(environment);
    g_subprocess_launcher_set_environ(launcher.get(), const_cast<gchar**>(env.data()));
    if (output == Output::File)
        g_subprocess_launcher_set_stdout_file_path(launcher.get(), logPath.c_str());

    auto args = cStrings(argv);
    GErrorPtr error;
    m_process = adopt(g_subprocess_launcher_spawnv(launcher.get(), args.data(), GErrorOut(error)));
    if (!m_process) {
        g_printerr("cannot start %s: %s\n", argv[0].c_str(), error ? error->message : "?");
        return false;
    }
    const char* identifier = g_subprocess_get_identifier(m_process.get());
    m_pid = identifier ? atoi(identifier) : 0;
    if (output == Output::Pipe)
        m_stdout = adopt(g_data_input_stream_new(g_subprocess_get_stdout_pipe(m_process.get())));

    m_cancellable = adopt(g_cancellable_new());
    g_subprocess_wait_async(m_process.get(), m_cancellable.get(), +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State>*>(data));
        GErrorPtr error;
        if (!g_subprocess_wait_finish(G_SUBPROCESS(source), result, GErrorOut(error)))
            return;
        (*state)->exited = true;
        (*state)->status = g_subprocess_get_if_exited(G_SUBPROCESS(source)) ? g_subprocess_get_exit_status(G_SUBPROCESS(source)) : -1;
    }, new std::shared_ptr<State>(m_state));
    return true;
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
    if (!m_stdout)
        return std::nullopt;
    auto state = std::make_shared<ReadState>();
    auto cancellable = adopt(g_cancellable_new());
    g_data_input_stream_read_line_async(m_stdout.get(), G_PRIORITY_DEFAULT, cancellable.get(), +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<std::shared_ptr<ReadState>> state(static_cast<std::shared_ptr<ReadState>*>(data));
        GCharPtr line(g_data_input_stream_read_line_finish(G_DATA_INPUT_STREAM(source), result, nullptr, nullptr));
        if (line)
            (*state)->line = line.get();
        (*state)->done = true;
    }, new std::shared_ptr<ReadState>(state));
    if (!waitUntil([&] { return state->done; }, timeout)) {
        g_cancellable_cancel(cancellable.get());
        waitUntil([&] { return state->done; }, 2s);
        return std::nullopt;
    }
    return state->line;
}

bool ChildProcess::isRunning() const { return m_process && !m_state->exited; }

bool ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
    return !m_process || waitUntil([&] { return m_state->exited; }, timeout);
}

int ChildProcess::exitStatus() const { return m_state->exited ? m_state->status : -1; }

void ChildProcess::sendSignal(int signal) {
    if (isRunning())
        g_subprocess_send_signal(m_process.get(), signal);
}

void ChildProcess::stop(std::chrono::milliseconds grace) {
    if (!isRunning())
        return;
    sendSignal(SIGTERM);
    if (waitForExit(grace))
        return;
    sendSignal(SIGKILL);
    waitForExit(5s);
}

std::optional<ChildProcess::Result> ChildProcess::run(const std::vector<std::string>& argv,
    const std::vector<std::string>& environment, std::chrono::milliseconds timeout) {
    if (argv.empty())
        return std::nullopt;
    auto launcher = adopt(g_subprocess_launcher_new(GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE)));
    auto env = cStrings(environment);
    g_subprocess_launcher_set_environ(launcher.get(), const_cast<gchar**>(env.data()));
    auto args = cStrings(argv);
    auto process = adopt(g_subprocess_launcher_spawnv(launcher.get(), args.data(), nullptr));
    if (!process)
        return std::nullopt;

    struct RunState {
        bool done = false;
        bool ok = false;
        std::string output;
    };
    auto state = std::make_shared<RunState>();
    auto cancellable = adopt(g_cancellable_new());
    g_subprocess_communicate_utf8_async(process.get(), nullptr, cancellable.get(), +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<std::shared_ptr<RunState>> state(static_cast<std::shared_ptr<RunState>*>(data));
        char* out = nullptr;
        (*state)->ok = g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &out, nullptr, nullptr);
        if (out)
            (*state)->output = out;
        g_free(out);
        (*state)->done = true;
    }, new std::shared_ptr<RunState>(state));

    if (!waitUntil([&] { return state->done; }, timeout)) {
        g_subprocess_force_exit(process.get());
        g_cancellable_cancel(cancellable.get());
        waitUntil([&] { return state->done; }, 5s);
        return std::nullopt;
    }
    if (!state->ok)
        return std::nullopt;
    // communicate() returns once the output is closed; the exit follows.
    g_subprocess_wait(process.get(), nullptr, nullptr);
    Result result;
    result.status = g_subprocess_get_if_exited(process.get()) ? g_subprocess_get_exit_status(process.get()) : -1;
    result.output = std::move(state->output);
    return result;
}

} // namespace orvane::test
