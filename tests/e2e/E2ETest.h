#pragma once

#include "support/FixtureServer.h"
#include "support/OrvaneProcess.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane::test {

// Runs the real orvane against the pages of tests/fixtures/e2e: each account
// page fills the window with one colour and reports its loads at
// /e2e/loaded?page=<name>, so a test can see which page is on screen and
// count how often each was loaded.
class E2ETest : public ::testing::Test {
protected:
    static constexpr Screenshot::Color kRed { 0xd6, 0x28, 0x28 };
    static constexpr Screenshot::Color kGreen { 0x2a, 0x9d, 0x3f };
    static constexpr Screenshot::Color kBlue { 0x1d, 0x4e, 0xd8 };

    // Orvane goes before the test's own members do: while it quits, its
    // pages may still call the handlers a test gave the server.
    void TearDown() override { orvane.stop(5s); }

    // Points Gmail, Outlook and Google Calendar at the pages and starts orvane.
    bool startOrvane(const std::string& gmailPage = "/e2e/red.html", const std::string& outlookPage = "/e2e/green.html",
        const std::string& calendarPage = "/e2e/blue.html") {
        orvane.overrideServices(server, gmailPage, outlookPage, calendarPage);
        return orvane.start();
    }

    // The one main window, once it is on screen.
    unsigned long mainWindow() {
        std::vector<unsigned long> windows;
        waitUntil([&] { return (windows = orvane.windowsTitled("Orvane")).size() == 1; }, 20s);
        return windows.size() == 1 ? windows.front() : 0;
    }

    // A point well inside the web area of the main window.
    std::pair<int, int> webAreaPoint() {
        auto geometry = orvane.geometry(mainWindow());
        if (!geometry)
            return { -1, -1 };
        return { geometry->x + geometry->width * 7 / 10, geometry->y + geometry->height * 6 / 10 };
    }

    // Takes screenshots until the pixel shows the colour (pages paint a
    // little after they report their load).
    bool waitForColor(std::pair<int, int> point, Screenshot::Color color, const std::string& name) {
        return waitForScreenshot(name, [&](const Screenshot& shot) { return shot.pixel(point.first, point.second).near(color); });
    }

    // Takes screenshots until one passes the check.
    bool waitForScreenshot(const std::string& name, const std::function<bool(const Screenshot&)>& check) {
        return waitUntil([&] {
            auto shot = orvane.screenshot(name);
            return shot && check(*shot);
        }, 20s);
    }

    // How often a page of tests/fixtures/e2e reported a finished load.
    int loads(const std::string& page) const {
        int count = 0;
        for (const auto& request : server.requests("/e2e/loaded"))
            count += request.query.rfind("page=" + page, 0) == 0;
        return count;
    }

    // The ids of accounts.json's accounts, in stored order.
    std::vector<std::string> accountIDs() const {
        std::vector<std::string> ids;
        auto file = orvane.accounts();
        if (file.is_object() && file["accounts"].is_array()) {
            for (const auto& account : file["accounts"])
                ids.push_back(account.value("id", ""));
        }
        return ids;
    }

    static std::string testName() {
        return ::testing::UnitTest::GetInstance()->current_test_info()->name();
    }

    FixtureServer server;
    OrvaneProcess orvane;
};

} // namespace orvane::test
