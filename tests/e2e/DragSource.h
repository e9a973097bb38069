#pragma once

#include "support/ChildProcess.h"
#include "support/OrvaneProcess.h"
#include "support/Wait.h"

#include <string>
#include <vector>

namespace orvane::test {

// A drag source on orvane's private X server: a small window of another
// program (orvane_drag_source) whose whole area offers some content (files,
// text, a link). The mouse is driven with xdotool, so orvane sees a real XDND
// drag from another client. The window sits right of orvane's main window
// (which starts at the top left), where the two do not overlap.
class DragSource {
public:
    static constexpr int kX = 1150;
    static constexpr int kY = 120;
    static constexpr int kSize = 100;

    // What a drag offers: argv for orvane_drag_source after its name.
    using Content = std::vector<std::string>;

    explicit DragSource(const OrvaneProcess& orvane) : m_orvane(orvane) {}
    ~DragSource() { close(); }
    DragSource(const DragSource&) = delete;
    DragSource& operator=(const DragSource&) = delete;

    // Shows the window offering this content.
    bool open(const Content& content) {
        close();
        std::vector<std::string> argv = { ORVANE_DRAG_SOURCE };
        argv.insert(argv.end(), content.begin(), content.end());
        if (!m_process.start(argv, m_orvane.environment()))
            return false;
        std::vector<unsigned long> windows;
        if (!waitUntil([&] { return !m_process.isRunning() || (windows = m_orvane.windowsTitled("Drag Source")).size() == 1; }, 20s)
            || windows.size() != 1)
            return false;
        m_xid = windows.front();
        return tool({ "xdotool", "windowmove", std::to_string(m_xid), std::to_string(kX), std::to_string(kY) });
    }

    // Offers other content for the next drag (a new window in the same place).
    bool setContent(const Content& content) { return open(content); }

    // Presses the left button on the window, moves to (x, y) in small steps
    // and releases it there, the way a hand would.
    bool dragTo(int x, int y) {
        // Orvane raises its own window when files arrive.
        if (!m_xid || !tool({ "xdotool", "windowraise", std::to_string(m_xid) }))
            return false;
        int fromX = kX + kSize / 2;
        int fromY = kY + kSize / 2;
        std::vector<std::string> argv = { "xdotool", "mousemove", std::to_string(fromX), std::to_string(fromY),
            "sleep", "0.1", "mousedown", "1", "sleep", "0.1" };
        constexpr int kSteps = 24;
        for (int step = 1; step <= kSteps; ++step) {
            argv.insert(argv.end(), { "mousemove", std::to_string(fromX + (x - fromX) * step / kSteps),
                                        std::to_string(fromY + (y - fromY) * step / kSteps), "sleep", "0.03" });
        }
        // A few moves at the drop point, so the target has answered before the release.
        for (int wiggle : { 1, -1, 0 })
            argv.insert(argv.end(), { "mousemove", std::to_string(x + wiggle), std::to_string(y), "sleep", "0.1" });
        argv.insert(argv.end(), { "mouseup", "1" });
        return tool(argv);
    }

    static Content files(const std::vector<std::string>& paths) {
        Content content = { "files" };
        content.insert(content.end(), paths.begin(), paths.end());
        return content;
    }
    static Content text(const std::string& text) { return { "text", text }; }
    static Content link(const std::string& uri) { return { "link", uri }; }

private:
    // Stops the program and waits until its window is gone.
    void close() {
        if (!m_xid && !m_process.isRunning())
            return;
        m_process.stop(2s);
        waitUntil([&] { return m_orvane.windowsTitled("Drag Source").empty(); }, 10s);
        m_xid = 0;
    }

    bool tool(const std::vector<std::string>& argv) {
        auto result = ChildProcess::run(argv, m_orvane.environment(), 30s);
        return result && result->status == 0;
    }

    const OrvaneProcess& m_orvane;
    ChildProcess m_process;
    unsigned long m_xid = 0;
};

} // namespace orvane::test
