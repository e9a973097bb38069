// What pages reach of the desktop, end to end. Their notifications, on a
// notification server of the test's own on orvane's private bus. What they
// open and print: outside links go to the default browser, pop-ups open in
// windows of their own (closing them is PageKeysTest's); the print command prints the
// selected account's page or the active pop-up, a page's window.print() the
// view it came from (a frame its whole page). Prints go to ORVANE_PRINT_TO_PDF.
#include "E2ETest.h"

#include "Files.h"
#include "support/BusCall.h"

#include <glib/gstdio.h>

namespace orvane::test {

namespace {

constexpr const char* kGmailID = "6B1F0C1E-2A53-4D0B-8E47-3C9A5D7E1F20";
constexpr const char* kCalendarID = "9D4E2A7B-5C61-4F38-A0B9-7E2D1C3F4A56";

// What GLib calls of each server.
constexpr const char* kGtkServer = R"XML(<node><interface name="org.gtk.Notifications">
  <method name="AddNotification"><arg type="s"/><arg type="s"/><arg type="a{sv}"/></method>
</interface></node>)XML";
constexpr const char* kFreedesktopServer = R"XML(<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="Notify"><arg type="s"/><arg type="u"/><arg type="s"/><arg type="s"/><arg type="s"/>
    <arg type="as"/><arg type="a{sv}"/><arg type="i"/><arg type="u" direction="out"/></method>
</interface></node>)XML";

} // namespace

class NotificationTest : public E2ETest {
protected:
    struct Shown {
        std::string id, title, body, action;
        std::pair<std::string, std::string> target; // (account, notif)
    };

    // A Gmail account on the notify page and a Calendar account, selected, on
    // the print page; orvane, then the notification server, once the pages have
    // loaded and the Gmail account has its label from its page's title.
    // GLib sends notifications to org.gtk.Notifications (GNOME Shell's) when
    // that name is owned, else to org.freedesktop.Notifications: the test
    // plays the first, or the second when given its capabilities, and notes
    // what it is shown.
    bool start(bool enabled, std::vector<const char*> capabilities = {}) {
        writeAccounts({ account(kGmailID, "mail"), account(kCalendarID, "calendar") },
            { { "selectedAccountID", kCalendarID }, { "notificationsEnabled", enabled } });
        if (!startOrvane("/notify/index.html?who=gmail", "/e2e/green.html", "/print/index.html?who=calendar"))
            return false;
        bool gtk = capabilities.empty();
        capabilities.push_back(nullptr);
        shown.clear();
        m_server.reset();
        m_server = std::make_unique<BusService>(orvane.bus(),
            gtk ? "org.gtk.Notifications" : "org.freedesktop.Notifications",
            gtk ? "/org/gtk/Notifications" : "/org/freedesktop/Notifications",
            gtk ? kGtkServer : kFreedesktopServer,
            [this, capabilities](const std::string& method, GVariant* parameters, const char*) {
                bool asked = method == "GetCapabilities";
                return asked ? g_variant_new("(^as)", capabilities.data()) : note(parameters);
            });
        return m_server->owned && waitForEvents("gmail", "loaded") && waitForEvents("calendar", "loaded")
            && waitUntil([&] { return label() == "notify@example.com"; });
    }
    // What AddNotification (app, id, hints) or Notify (app, replaces, icon,
    // title, body, actions, hints, timeout) is given.
    GVariant* note(GVariant* parameters) {
        const char *id = "", *title = "", *body = "", *action = "", *account = "", *notif = "";
        bool gtk = g_variant_n_children(parameters) == 3;
        GVariantPtr hints(g_variant_get_child_value(parameters, gtk ? 2 : 6));
        if (gtk)
            g_variant_get_child(parameters, 1, "&s", &id);
        else
            g_variant_get(parameters, "(&su&s&s&sas@a{sv}i)", nullptr, nullptr, nullptr, &title, &body,
                nullptr, nullptr, nullptr);
        g_variant_lookup(hints.get(), "title", "&s", &title);
        g_variant_lookup(hints.get(), "body", "&s", &body);
        g_variant_lookup(hints.get(), "default-action", "&s", &action);
        g_variant_lookup(hints.get(), "default-action-target", "(&s&s)", &account, &notif);
        shown.push_back({ id, title, body, action, { account, notif } });
        return gtk ? nullptr : g_variant_new("(u)", guint32(shown.size()));
    }

    // The first notification with this title, once shown.
    std::optional<Shown> waitFor(const std::string& title) {
        auto found = [&] { return std::ranges::find(shown, title, &Shown::title); };
        bool shownInTime = waitUntil([&] { return found() != shown.end(); }, 20s);
        return shownInTime ? std::optional(*found()) : std::nullopt;
    }
    // What GNOME Shell does on a click: org.freedesktop.Application.ActivateAction,
    // which D-Bus delivers to a new orvane when none is running.
    bool click(const Shown& notification) {
        if (notification.action.rfind("app.", 0) != 0)
            return false;
        auto& [account, notif] = notification.target;
        GVariant* parameters = g_variant_new_parsed(
            "(%s, [<(%s, %s)>], @a{sv} {})", notification.action.c_str() + 4, account.c_str(), notif.c_str());
        return bool(callAndWait(orvane.bus(), OrvaneProcess::kBusName, OrvaneProcess::kObjectPath,
            "org.freedesktop.Application", "ActivateAction", parameters, 30s));
    }

    std::string label() const {
        auto accounts = orvane.accounts().value("accounts", nlohmann::json::array());
        return accounts.empty() ? "" : accounts[0].value("label", "");
    }
    bool waitForSelection(const std::string& accountID) {
        return waitUntil([&] { return orvane.selectedAccountID() == accountID; }, 20s);
    }

    // The text of the next PDF printed, or "(no PDF)".
    std::string printed() {
        std::string text = "(no PDF)";
        waitUntil([&] {
            auto result = Files::exists(pdf) ? orvane.run({ "pdftotext", pdf, "-" }) : std::nullopt;
            if (result && result->status == 0 && !result->output.empty())
                text = result->output;
            return text != "(no PDF)";
        }, 30s);
        g_remove(pdf.c_str());
        return text;
    }
    static bool has(const std::string& text, const char* word) {
        return text.find(word) != std::string::npos;
    }

    std::string pdf = orvane.folder() + "/printed.pdf";
    std::vector<Shown> shown;
    std::unique_ptr<BusService> m_server;
};

TEST_F(NotificationTest, PageNotificationsLinksPopupsAndPrintsFollowTheViewThatAskedAndBodiesSuitTheServer) {
    // The bus starts `orvane --gapplication-service`, with this run's
    // environment, for app.orvane.Orvane when it is not running.
    ASSERT_TRUE(Files::makeFolder(orvane.dataHome() + "/dbus-1/services"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.dataHome() + "/dbus-1/services/app.orvane.Orvane.service",
        "[D-BUS Service]\nName=app.orvane.Orvane\nExec=" ORVANE_BINARY " --gapplication-service\n"));
    // A stand-in browser, the default for web links, notes each address it gets.
    std::string opened = orvane.folder() + "/browser-opened.txt", browser = orvane.folder() + "/browser.sh";
    ASSERT_TRUE(Files::replaceAtomically(browser, "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + opened + "'\n"));
    g_chmod(browser.c_str(), 0755);
    ASSERT_TRUE(Files::makeFolder(orvane.dataHome() + "/applications"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.dataHome() + "/applications/browser.desktop",
        "[Desktop Entry]\nType=Application\nName=Browser\nMimeType=x-scheme-handler/https;\nExec=" + browser
            + " %u\n"));
    ASSERT_TRUE(Files::replaceAtomically(orvane.configHome() + "/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/https=browser.desktop\n"));
    orvane.setEnvironment("ORVANE_PRINT_TO_PDF", pdf);
    ASSERT_TRUE(start(false));

    // The calendar's page sends an outside link to the browser; the print
    // command prints that page, the frame's window.print() the whole page.
    runInPage("calendar",
        "const a = document.createElement('a'); a.href = 'https://example.org/outside';"
        "document.body.append(a); a.click()");
    EXPECT_TRUE(waitUntil([&] { return Files::read(opened, 1 << 20) == "https://example.org/outside\n"; }));
    ASSERT_TRUE(orvane.activateAction("print"));
    std::string text = printed();
    EXPECT_TRUE(has(text, "ACCOUNTPAGE")) << text;
    runInPage("calendar", "document.getElementById('frame').contentWindow.print()");
    text = printed();
    EXPECT_TRUE(has(text, "ACCOUNTPAGE") && has(text, "FRAMEPART")) << text;

    // While off, nothing shows; the page's title change reaches Orvane after
    // its notification did. The preferences' switch turns them on at once.
    runInPage("gmail", "show('x', 'Hidden'); document.title = 'Inbox - ann@example.com - Gmail'");
    ASSERT_TRUE(waitUntil([&] { return label() == "ann@example.com"; }, 20s));
    EXPECT_TRUE(shown.empty());
    ASSERT_TRUE(orvane.activateAction("preferences"));
    std::vector<unsigned long> preferences;
    ASSERT_TRUE(waitUntil([&] { return (preferences = orvane.windowsTitled("Preferences")).size() == 1; }));
    ASSERT_TRUE(orvane.pressKeys(preferences.front(), "alt+n"));
    ASSERT_TRUE(waitUntil([&] { return orvane.accounts().value("notificationsEnabled", false); }, 10s));

    // Titled by the page, the account's label leading the body, which stays
    // plain text for this server; the tag names it per account.
    runInPage("gmail", "show('first', 'Click me', { body: '<b>Ann</b> & co', tag: 't1' })");
    auto first = waitFor("Click me");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->id, std::string("orvane-") + kGmailID + "-t1");
    EXPECT_EQ(first->body, "ann@example.com\n<b>Ann</b> & co");

    // A click on the page opens the pop-up, which prints itself when it has loaded.
    auto point = webAreaPoint();
    ASSERT_TRUE(orvane.click(point.first, point.second));
    text = printed();
    EXPECT_TRUE(has(text, "POPUPPAGE") && !has(text, "ACCOUNTPAGE")) << text;
    unsigned long popup = windows(2)[1];
    ASSERT_TRUE(orvane.pressKeys(popup, "ctrl+p"));
    text = printed();
    EXPECT_TRUE(has(text, "POPUPPAGE")) << text;
    // A pop-up's notification shows nothing; the page's next one does.
    runInPage("popup", "show('p', 'From the pop-up'); report('posted')");
    ASSERT_TRUE(waitForEvents("popup", "posted", 1));
    runInPage("gmail", "show('q', 'After the pop-up')");
    ASSERT_TRUE(waitFor("After the pop-up"));
    for (const auto& shown : shown)
        EXPECT_NE(shown.title, "From the pop-up");

    // A click selects the account and runs the page's handler.
    ASSERT_TRUE(click(*first));
    EXPECT_TRUE(waitForSelection(kGmailID));
    ASSERT_TRUE(waitForEvents("gmail", "clicked", 1));
    EXPECT_EQ(events("gmail", "clicked")[0]["key"], "first");

    // A flood stays bounded, Orvane answers D-Bus all along, and the last
    // notification is never lost: it waits for its turn.
    const int64_t began = g_get_monotonic_time();
    size_t before = shown.size();
    runInPage("gmail", "for (let i = 0; i < 5000; ++i) new Notification('Flood ' + i); report('flooded')");
    while (events("gmail", "flooded").empty() && g_get_monotonic_time() - began < 60 * G_USEC_PER_SEC)
        ASSERT_TRUE(orvane.actionEnabled("quit"));
    auto last = waitFor("Flood 4999");
    ASSERT_TRUE(last);
    double seconds = double(g_get_monotonic_time() - began) / G_USEC_PER_SEC;
    EXPECT_LE(shown.size() - before, size_t(10 + seconds + 2));

    // A click after Orvane quit starts it again and selects the account.
    ASSERT_TRUE(orvane.activateAction("select-account", g_variant_new_int32(2)));
    ASSERT_TRUE(orvane.stop());
    ASSERT_TRUE(waitUntil([&] { return !orvane.nameHasOwner(OrvaneProcess::kBusName); }));
    ASSERT_EQ(orvane.selectedAccountID(), kCalendarID);
    ASSERT_TRUE(click(*last));
    EXPECT_TRUE(waitForSelection(kGmailID));
    EXPECT_TRUE(waitUntil([&] { return orvane.windowsTitled("Orvane").size() == 1; }, 20s));
    EXPECT_TRUE(orvane.activateAction("quit"));
    EXPECT_TRUE(waitUntil([&] { return !orvane.nameHasOwner(OrvaneProcess::kBusName); }, 20s));

    // GLib passes bodies on to org.freedesktop.Notifications as they are:
    // Orvane escapes them for a server that reads markup, and only for one.
    for (bool markup : { true, false }) {
        ASSERT_TRUE(start(true, markup ? std::vector { "body", "body-markup" } : std::vector { "body" }));
        runInPage("gmail", "show('m', 'Tags', { body: '<b>x</b> & y' })");
        auto shown = waitFor("Tags");
        ASSERT_TRUE(shown);
        std::string body = markup ? "&lt;b&gt;x&lt;/b&gt; &amp; y" : "<b>x</b> & y";
        EXPECT_EQ(shown->body, "notify@example.com\n" + body);
        ASSERT_TRUE(orvane.stop());
    }
}

} // namespace orvane::test
