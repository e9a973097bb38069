// The pages' notifications on the desktop, end to end: the real orvane on a
// private bus with a notification server of the test's, on both backends GLib
// can pick (org.gtk.Notifications when owned, else
// org.freedesktop.Notifications).
#include "E2ETest.h"
#include "PageRemote.h"

#include "Account.h"
#include "Files.h"
#include "support/BusCall.h"
#include "support/FakeGtkNotifications.h"
#include "support/NotificationDaemonMock.h"

#include <pango/pango.h>

#include <glib/gstdio.h>

#include <memory>

namespace orvane::test {

namespace {

constexpr const char* kGmailID = "6B1F0C1E-2A53-4D0B-8E47-3C9A5D7E1F20";
constexpr const char* kCalendarID = "9D4E2A7B-5C61-4F38-A0B9-7E2D1C3F4A56";
constexpr const char* kGmailLabel = "notify@example.com"; // read from the page's title

// What a person sees of a body: markup servers show its text.
std::string displayed(const std::string& body, bool markup) {
    if (!markup)
        return body;
    char* text = nullptr;
    if (!pango_parse_markup(body.c_str(), -1, 0, nullptr, &text, nullptr, nullptr))
        return "(not valid markup) " + body;
    std::string result = text;
    g_free(text);
    return result;
}

} // namespace

class NotificationE2E : public E2ETest {
protected:
    // A Gmail and a Calendar account on the notify page, the calendar
    // selected, then orvane and the notification server.
    bool startOrvane(bool notificationsEnabled) {
        nlohmann::json file = {
            { "accounts", {
                { { "id", kGmailID }, { "label", "Work" }, { "dataStoreID", "1C0E4B2D-7A3F-4E59-B168-2F5D9C0A7E34" }, { "colorSeed", 10 }, { "service", "mail" } },
                { { "id", kCalendarID }, { "label", "Home" }, { "dataStoreID", "2E7A9C41-6B0D-4F83-9A25-C1D3E5F7A9B0" }, { "colorSeed", 200 }, { "service", "calendar" } },
            } },
            { "selectedAccountID", kCalendarID },
            { "notificationsEnabled", notificationsEnabled },
        };
        orvane.writeAccountsFile(file);
        orvane.overrideServices(server, "/notify/index.html?who=gmail", "/notify/index.html?who=outlook",
            "/notify/index.html?who=calendar");
        if (!orvane.start())
            return false;
        if (backend == "gtk")
            notifications = std::make_unique<FakeGtkNotifications>();
        else
            notifications = std::make_unique<NotificationDaemonMock>();
        if (!notifications->start(orvane.desktop().bus(), orvane.desktop().busAddress()))
            return false;
        return remote.waitForEvents("gmail", "loaded", 1, 30s) && remote.waitForEvents("calendar", "loaded", 1, 30s)
            && waitUntil([&] { return label(kGmailID) == kGmailLabel; });
    }

    std::string label(const std::string& accountID) const {
        auto file = orvane.accounts();
        if (file.is_object() && file["accounts"].is_array())
            for (const auto& account : file["accounts"])
                if (account.value("id", "") == accountID)
                    return account.value("label", "");
        return "";
    }

    // The first notification with this title, once shown.
    std::optional<NotificationServer::Shown> waitForShown(const std::string& title) {
        std::optional<NotificationServer::Shown> found;
        waitUntil([&] {
            for (const auto& shown : notifications->shown())
                if (shown.title == title)
                    found = shown;
            return found.has_value();
        }, 20s);
        return found;
    }

    size_t shownCount() { return notifications->shown().size(); }

    bool clickAction(const std::string& account, const std::string& notif) {
        return orvane.activateAction("notification-clicked", g_variant_new("(ss)", account.c_str(), notif.c_str()));
    }

    bool waitForSelection(const std::string& accountID) {
        return waitUntil([&] { return orvane.selectedAccountID() == accountID; }, 20s);
    }

    std::string backend;
    PageRemote remote { server };
    std::unique_ptr<NotificationServer> notifications;
};

class NotificationTest : public NotificationE2E, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override { backend = GetParam(); }
};

TEST_P(NotificationTest, PageNotificationsShowWithTitleSubtitleAndIdentifier) {
    ASSERT_TRUE(startOrvane(true));

    remote.run("gmail", "show('a', 'New mail', { body: 'From Ann', tag: 'inbox' })");
    auto first = waitForShown("New mail");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->body, std::string(kGmailLabel) + "\nFrom Ann");

    // The same tag replaces; no tag is a notification of its own, titled
    // with the account's label.
    remote.run("gmail", "show('b', 'Newer mail', { tag: 'inbox' }); show('c', '', { body: 'untagged' })");
    auto replacing = waitForShown("Newer mail");
    auto untagged = waitForShown(kGmailLabel);
    ASSERT_TRUE(replacing && untagged);
    EXPECT_EQ(replacing->body, kGmailLabel);
    EXPECT_EQ(untagged->body, "untagged");

    // A calendar page's notification names the calendar account.
    remote.run("calendar", "show('d', 'Meeting at 10')");
    auto meeting = waitForShown("Meeting at 10");
    ASSERT_TRUE(meeting);
    EXPECT_EQ(meeting->body, "Home");

    // Markup in a page's texts is shown as text.
    std::string markupTitle = "<b>Bold</b> & <i>co</i>";
    std::string markupBody = "<a href=\"https://example.org/\">link</a> &amp; <img src=\"x\">";
    remote.run("gmail", "show('e', " + nlohmann::json(markupTitle).dump() + ", { body: " + nlohmann::json(markupBody).dump() + " })");
    auto markup = waitForShown(markupTitle);
    ASSERT_TRUE(markup);
    EXPECT_EQ(displayed(markup->body, notifications->readsMarkup()), std::string(kGmailLabel) + "\n" + markupBody);

    if (backend == "gtk") {
        auto* gtk = static_cast<FakeGtkNotifications*>(notifications.get());
        EXPECT_EQ(first->id, std::string("orvane-") + kGmailID + "-inbox");
        EXPECT_EQ(replacing->id, first->id);
        EXPECT_EQ(canonicalUUID(untagged->id), untagged->id);
        EXPECT_EQ(meeting->action, "app.notification-clicked");
        EXPECT_EQ(first->target, std::make_pair(std::string(kGmailID), std::string("1")));
        EXPECT_EQ(replacing->target, std::make_pair(std::string(kGmailID), std::string("2")));
        EXPECT_EQ(meeting->target, std::make_pair(std::string(kCalendarID), std::string("1")));
        EXPECT_EQ(gtk->appIDs().front(), "app.orvane.Orvane");
    } else {
        EXPECT_EQ(replacing->replaces, first->number);
        EXPECT_EQ(untagged->replaces, 0u);
        EXPECT_NE(untagged->number, first->number);
    }

    // A pop-up's notification shows nothing; the page's next one does.
    auto point = webAreaPoint();
    ASSERT_TRUE(orvane.click(point.first, point.second));
    ASSERT_TRUE(remote.waitForEvents("popup", "loaded", 1));
    remote.run("popup", "show('p', 'From the pop-up'); report('posted')");
    ASSERT_TRUE(remote.waitForEvents("popup", "posted", 1));
    remote.run("gmail", "show('q', 'After the pop-up')");
    ASSERT_TRUE(waitForShown("After the pop-up"));
    for (const auto& shown : notifications->shown())
        EXPECT_NE(shown.title, "From the pop-up");
}

TEST_P(NotificationTest, AClickSelectsTheAccountAndRunsThePagesHandler) {
    ASSERT_TRUE(startOrvane(true));
    // A server forgets a notification once it has been clicked: each click
    // below is on a notification of its own.
    remote.run("gmail", "show('first', 'Click me', { tag: 't1' }); show('stale', 'Stale', { tag: 't2' })");
    auto clickMe = waitForShown("Click me");
    auto stale = waitForShown("Stale");
    ASSERT_TRUE(clickMe && stale);

    ASSERT_TRUE(notifications->click(*clickMe));
    EXPECT_TRUE(waitForSelection(kGmailID));
    ASSERT_TRUE(remote.waitForEvents("gmail", "clicked", 1));
    EXPECT_EQ(remote.events("gmail", "clicked")[0].data["key"], "first");

    // Ids that would break out of a quoted script run nothing; the next real
    // click reports whether any of them did.
    for (const char* hostile : { "');window.__pwned=true;//", "\\');window.__pwned=true;//",
             "\");window.__pwned=true;//", "'+(window.__pwned=true)+'", "1');window.__pwned=true;('",
             "\u2028');window.__pwned=true;//" })
        ASSERT_TRUE(clickAction(kGmailID, hostile)) << hostile;
    remote.run("gmail", "show('second', 'Click me too')");
    auto second = waitForShown("Click me too");
    ASSERT_TRUE(second);
    ASSERT_TRUE(notifications->click(*second));
    ASSERT_TRUE(remote.waitForEvents("gmail", "clicked", 2));
    EXPECT_EQ(remote.events("gmail", "clicked")[1].data["key"], "second");
    EXPECT_EQ(remote.events("gmail", "clicked")[1].data["pwned"], false);

    // After a reload a click still selects the account, but the page has
    // forgotten the notification.
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    ASSERT_TRUE(waitForSelection(kCalendarID));
    remote.run("gmail", "location.reload()");
    ASSERT_TRUE(remote.waitForEvents("gmail", "loaded", 2));
    ASSERT_TRUE(notifications->click(*stale));
    EXPECT_TRUE(waitForSelection(kGmailID));
    remote.run("gmail", "show('fresh', 'Fresh')");
    auto fresh = waitForShown("Fresh");
    ASSERT_TRUE(fresh);
    ASSERT_TRUE(notifications->click(*fresh));
    ASSERT_TRUE(remote.waitForEvents("gmail", "clicked", 3));
    EXPECT_EQ(remote.events("gmail", "clicked")[2].data["clicks"], nlohmann::json({ "fresh" }));
}

TEST_P(NotificationTest, NothingShowsWhileNotificationsAreOff) {
    ASSERT_TRUE(startOrvane(false));
    // The page's title change reaches Orvane after the notification did.
    remote.run("gmail", "show('x', 'Hidden'); document.title = 'Inbox - barrier@example.com - Gmail'");
    ASSERT_TRUE(waitUntil([&] { return label(kGmailID) == "barrier@example.com"; }, 20s));
    ASSERT_TRUE(orvane.actions());
    EXPECT_EQ(shownCount(), 0u);
}

TEST_P(NotificationTest, AFloodStaysBoundedAndOrvaneKeepsAnswering) {
    ASSERT_TRUE(startOrvane(true));
    const int64_t start = g_get_monotonic_time();
    remote.run("gmail", "for (let i = 0; i < 5000; ++i) new Notification('Flood ' + i, { body: 'b' }); report('flooded')");

    int64_t slowestMs = 0;
    int answers = 0;
    while (remote.events("gmail", "flooded").empty() && g_get_monotonic_time() - start < 60 * G_USEC_PER_SEC) {
        int64_t asked = g_get_monotonic_time();
        GVariantPtr list = callAndWait(orvane.desktop().bus(), OrvaneProcess::kBusName, OrvaneProcess::kObjectPath,
            "org.gtk.Actions", "List", nullptr, 5s);
        ASSERT_TRUE(list) << "orvane stopped answering D-Bus during the flood";
        slowestMs = std::max<int64_t>(slowestMs, (g_get_monotonic_time() - asked) / 1000);
        ++answers;
    }
    ASSERT_FALSE(remote.events("gmail", "flooded").empty());
    // The last one is never lost: it waits for its turn.
    ASSERT_TRUE(waitForShown("Flood 4999"));
    double seconds = double(g_get_monotonic_time() - start) / G_USEC_PER_SEC;
    size_t shown = shownCount();
    std::printf("[ figures  ] %s: 5000 notifications, %zu shown in %.1f s; slowest of %d D-Bus answers %lld ms\n",
        notifications->name(), shown, seconds, answers, static_cast<long long>(slowestMs));
    EXPECT_LE(shown, size_t(10 + seconds + 2));
    EXPECT_TRUE(orvane.actions());
}

INSTANTIATE_TEST_SUITE_P(Backends, NotificationTest, ::testing::Values("gtk", "freedesktop"),
    [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

// A markup-free org.freedesktop.Notifications server gets the page's text as
// it is.
TEST_F(NotificationE2E, ServersWithoutBodyMarkupGetPlainText) {
    orvane.overrideServices(server, "/notify/index.html?who=gmail", "/notify/index.html?who=outlook",
        "/notify/index.html?who=calendar");
    orvane.writeAccountsFile({ { "accounts", { { { "id", kGmailID }, { "label", "Work" }, { "dataStoreID", "1C0E4B2D-7A3F-4E59-B168-2F5D9C0A7E34" }, { "colorSeed", 1 }, { "service", "mail" } } } },
        { "selectedAccountID", kGmailID }, { "notificationsEnabled", true } });
    ASSERT_TRUE(orvane.start());
    notifications = std::make_unique<NotificationDaemonMock>("body actions");
    ASSERT_TRUE(notifications->start(orvane.desktop().bus(), orvane.desktop().busAddress()));
    ASSERT_TRUE(remote.waitForEvents("gmail", "loaded", 1, 30s));
    remote.run("gmail", "show('m', 'Tags', { body: '<b>x</b> & y' })");
    auto shown = waitForShown("Tags");
    ASSERT_TRUE(shown);
    EXPECT_TRUE(g_str_has_suffix(shown->body.c_str(), "\n<b>x</b> & y")) << shown->body;
}

// GNOME Shell answers a click with org.freedesktop.Application.ActivateAction,
// which D-Bus delivers to a new orvane when none is running (the desktop
// entry is DBusActivatable and app.orvane.Orvane.service starts
// `orvane --gapplication-service`).
TEST_F(NotificationE2E, AClickStartsOrvaneAgainAndSelectsTheAccount) {
    backend = "gtk";
    // The bus daemon reads activation files from the test's XDG_DATA_HOME.
    std::string services = std::string(g_getenv("XDG_DATA_HOME")) + "/dbus-1/services";
    g_mkdir_with_parents(services.c_str(), 0700);
    std::string launcher = orvane.folder() + "/activated-orvane.sh";
    std::string serviceFile = services + "/app.orvane.Orvane.service";
    ASSERT_TRUE(Files::replaceAtomically(serviceFile, "[D-BUS Service]\nName=app.orvane.Orvane\nExec=" + launcher + "\n"));
    std::unique_ptr<const char, void (*)(const char*)> removeServiceFile(serviceFile.c_str(), [](const char* path) { g_remove(path); });
    ASSERT_TRUE(startOrvane(true));

    // The orvane that D-Bus starts gets the first one's environment.
    auto quoted = [](const std::string& text) {
        std::string out = "'";
        for (char c : text)
            out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return out + "'";
    };
    std::string command = "#!/bin/sh\nexec env -i";
    for (const auto& entry : orvane.environment())
        command += " " + quoted(entry);
    command += " " + quoted(ORVANE_BINARY) + " --gapplication-service >> " + quoted(orvane.folder() + "/activated.log") + " 2>&1\n";
    ASSERT_TRUE(Files::replaceAtomically(launcher, command));
    g_chmod(launcher.c_str(), 0755);

    remote.run("gmail", "show('before', 'Before the restart')");
    auto before = waitForShown("Before the restart");
    ASSERT_TRUE(before);

    ASSERT_TRUE(orvane.activateAction("quit"));
    ASSERT_TRUE(waitUntil([&] { return !orvane.isRunning() && !orvane.desktop().nameHasOwner(OrvaneProcess::kBusName); }, 20s));
    ASSERT_EQ(orvane.selectedAccountID(), kCalendarID);

    ASSERT_TRUE(notifications->click(*before)) << Files::read(orvane.folder() + "/activated.log", 1 << 20).value_or("");
    EXPECT_TRUE(waitForSelection(kGmailID));
    EXPECT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").size() == 1; }, 20s));
    EXPECT_TRUE(remote.waitForEvents("gmail", "loaded", 2, 30s));
    ASSERT_TRUE(orvane.activateAction("quit"));
    EXPECT_TRUE(waitUntil([&] { return !orvane.desktop().nameHasOwner(OrvaneProcess::kBusName); }, 20s));
}

} // namespace orvane::test
