// How many downloads and print dialogs a page gets without the user: the
// download gate's counting, question and answers, and the print gate's quiet
// time after the dialog (the print-to-file mode has no dialog, so this is
// where the rule shows).
#include "DownloadGate.h"
#include "PrintGate.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvane {
namespace {

using namespace std::chrono_literals;

TEST(FloodGatesTest, DownloadsBeyondAFewWithoutAGestureWaitForOneAnswer) {
    using V = DownloadGate::Verdict;
    // Each step: at a time (ms), an input ("input"), an answer ("allow",
    // "block") or a download with the verdict it must get.
    struct Step {
        int ms;
        std::string what;
        std::optional<V> verdict;
    };
    struct Case {
        const char* name;
        std::vector<Step> steps;
    };
    const Case cases[] = {
        { "three go, the fourth asks, more wait, block drops them for a minute", {
            { 0, "", V::Start }, { 10, "", V::Start }, { 20, "", V::Start }, { 30, "", V::Ask },
            { 40, "", V::Hold }, { 500, "block", {} }, { 600, "", V::Drop }, { 60'400, "", V::Drop },
            { 60'600, "", V::Start } } },
        { "allow lets held and further ones go for a minute, then counting starts again", {
            { 0, "", V::Start }, { 0, "", V::Start }, { 0, "", V::Start }, { 0, "", V::Ask },
            { 100, "allow", {} }, { 200, "", V::Start }, { 300, "", V::Start }, { 400, "", V::Start },
            { 500, "", V::Start }, { 61'000, "", V::Start }, { 61'000, "", V::Start }, { 61'000, "", V::Start },
            { 61'000, "", V::Ask } } },
        { "downloads spread out never ask", {
            { 0, "", V::Start }, { 2'000, "", V::Start }, { 4'000, "", V::Start }, { 5'001, "", V::Start },
            { 7'001, "", V::Start }, { 9'001, "", V::Start }, { 10'002, "", V::Start } } },
        { "a gesture lets one download go, not counted, and only within five seconds", {
            { 0, "", V::Start }, { 0, "", V::Start }, { 0, "", V::Start }, { 100, "input", {} },
            { 200, "", V::Start }, { 300, "", V::Ask }, { 400, "input", {} }, { 500, "", V::Start },
            { 600, "block", {} }, { 700, "input", {} }, { 5'800, "", V::Drop }, { 5'900, "input", {} },
            { 6'000, "", V::Start }, { 6'100, "", V::Drop } } },
    };
    for (const auto& c : cases) {
        DownloadGate gate;
        const auto start = DownloadGate::Clock::now();
        int index = 0;
        for (const auto& step : c.steps) {
            auto now = start + std::chrono::milliseconds(step.ms);
            if (step.what == "input")
                gate.userInput(now);
            else if (!step.what.empty())
                gate.answer(step.what == "allow", now);
            else
                EXPECT_EQ(gate.arrive(now), *step.verdict) << c.name << ", step " << index;
            ++index;
        }
    }

    // While the question is open, a bounded number wait.
    DownloadGate gate;
    const auto now = DownloadGate::Clock::now();
    for (size_t i = 0; i < DownloadGate::kFreeDownloads; ++i)
        gate.arrive(now);
    EXPECT_EQ(gate.arrive(now), V::Ask);
    for (size_t i = 1; i < DownloadGate::kMaxHeld; ++i)
        ASSERT_EQ(gate.arrive(now), V::Hold);
    EXPECT_EQ(gate.arrive(now), V::Drop);
    EXPECT_TRUE(gate.asking());
}

TEST(FloodGatesTest, PagesCannotReopenThePrintDialogAsItCloses) {
    PrintGate gate;
    const auto start = PrintGate::Clock::now();
    EXPECT_TRUE(gate.allowsPageRequest(start));
    gate.dialogOpened();
    EXPECT_FALSE(gate.allowsPageRequest(start + 1s));
    gate.dialogClosed(start + 10s);
    EXPECT_FALSE(gate.allowsPageRequest(start + 10s));
    EXPECT_FALSE(gate.allowsPageRequest(start + 13s));
    EXPECT_TRUE(gate.allowsPageRequest(start + 13s + 1ms));
}

} // namespace
} // namespace orvane
