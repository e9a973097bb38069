// What Orvane keeps from one run to the next: the window's size and each
// account's zoom.
#include "E2ETest.h"

#include <cmath>

namespace orvane::test {

using RestartTest = E2ETest;

TEST_F(RestartTest, WindowSizeAndPageZoomComeBack) {
    writeAccounts({ newAccount() });
    serveWithRemote("/e2e/width.html", "/e2e/red.html", "addEventListener('load', () => report('width', innerWidth));"
                                                         "addEventListener('resize', () => report('width', innerWidth));");
    auto lastWidth = [&] { auto widths = events("gmail", "width"); return widths.empty() ? 0 : widths.back().data.get<int>(); };
    ASSERT_TRUE(startOrvane("/e2e/width.html?who=gmail"));
    ASSERT_TRUE(waitForEvents("gmail", "width"));
    unsigned long window = mainWindow();
    const int firstWindowWidth = orvane.geometry(window).value().width;
    const int unzoomed = lastWidth();

    // Ctrl+plus twice is 125 %: the page's CSS pixels are wider.
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+plus"));
    ASSERT_TRUE(orvane.pressKeys(window, "ctrl+plus"));
    EXPECT_TRUE(waitUntil([&] { return std::abs(lastWidth() * 1.25 - unzoomed) <= 2; }, 10s)) << lastWidth();
    ASSERT_TRUE(orvane.run({ "xdotool", "windowsize", std::to_string(window), "1000", "640" }));
    // Orvane has taken the new size once the page has.
    const int resized = unzoomed + 1000 - firstWindowWidth;
    ASSERT_TRUE(waitUntil([&] { return std::abs(lastWidth() * 1.25 - resized) <= 2; }, 10s)) << lastWidth();
    ASSERT_TRUE(orvane.stop());
    const size_t before = events("gmail", "width").size();

    ASSERT_TRUE(orvane.start());
    ASSERT_TRUE(waitForEvents("gmail", "width", before + 1));
    window = mainWindow();
    auto geometry = orvane.geometry(window).value_or(OrvaneProcess::Geometry {});
    EXPECT_EQ(geometry.width, 1000);
    EXPECT_EQ(geometry.height, 640);
    EXPECT_TRUE(waitUntil([&] { return std::abs(lastWidth() * 1.25 - resized) <= 2; }, 10s)) << lastWidth();
}

} // namespace orvane::test
