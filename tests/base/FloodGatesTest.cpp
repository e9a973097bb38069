// How many downloads and print dialogs a page gets without the user: the
// download gate's counting, question and answers, and the print gate's quiet
// time after the dialog (the print-to-file mode has no dialog, so this is
// where the rule shows).
#include "DownloadGate.h"
#include "PrintGate.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace orvane {
namespace {

using namespace std::chrono_literals;

// Each step is a time in ms and what happens then: a download that must get
// the verdict Start, Ask, Hold or Drop, user input (i), or the answer allow (y) or block (n).
TEST(FloodGatesTest, DownloadsBeyondAFewWithoutAGestureWaitForOneAnswer) {
    using enum DownloadGate::Verdict;
    const std::pair<const char*, const char*> cases[] = {
        { "three go, the fourth asks, more wait, block drops them for a minute",
            "0S 10S 20S 30A 40H 500n 600D 60400D 60600S" },
        { "allow lets held and further ones go for a minute, then counting starts again",
            "0S 0S 0S 0A 100y 200S 300S 400S 500S 61000S 61000S 61000S 61000A" },
        { "downloads spread out never ask", "0S 2000S 4000S 5001S 7001S 9001S 10002S" },
        { "a gesture lets one download go, not counted, and only within five seconds",
            "0S 0S 0S 100i 200S 300A 400i 500S 600n 700i 5800D 5900i 6000S 6100D" },
    };
    const std::map<char, DownloadGate::Verdict> verdicts = {
        { 'S', Start }, { 'A', Ask }, { 'H', Hold }, { 'D', Drop },
    };
    for (const auto& [name, steps] : cases) {
        DownloadGate gate;
        const auto start = DownloadGate::Clock::now();
        std::istringstream stream(steps);
        for (int ms; stream >> ms;) {
            const char what = static_cast<char>(stream.get());
            const auto now = start + std::chrono::milliseconds(ms);
            if (what == 'i')
                gate.userInput(now);
            else if (what == 'y' || what == 'n')
                gate.answer(what == 'y', now);
            else
                EXPECT_EQ(gate.arrive(now), verdicts.at(what)) << name << ", at " << ms << " ms";
        }
    }

    // While the question is open, a bounded number wait.
    DownloadGate gate;
    const auto now = DownloadGate::Clock::now();
    for (size_t i = 0; i < DownloadGate::kFreeDownloads; ++i)
        gate.arrive(now);
    EXPECT_EQ(gate.arrive(now), Ask);
    for (size_t i = 1; i < DownloadGate::kMaxHeld; ++i)
        ASSERT_EQ(gate.arrive(now), Hold);
    EXPECT_EQ(gate.arrive(now), Drop);
}

TEST(FloodGatesTest, PagesCannotReopenThePrintDialogAsItCloses) {
    PrintGate gate;
    const auto start = PrintGate::Clock::now();
    EXPECT_TRUE(gate.allowsPageRequest(start));
    gate.dialogOpened();
    EXPECT_FALSE(gate.allowsPageRequest(start + 1s));
    gate.dialogClosed(start + 10s);
    EXPECT_FALSE(gate.allowsPageRequest(start + 13s));
    EXPECT_TRUE(gate.allowsPageRequest(start + 13s + 1ms));
}

} // namespace
} // namespace orvane
