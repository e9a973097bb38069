// mailto: links end to end: `orvane 'mailto:…'` against the real binary,
// with the Gmail and Outlook stand-ins reporting their compose forms to the
// fixture server; and the preferences' default-app row against a private
// mimeapps.list.
#include "E2ETest.h"

#include "support/FixturePageScript.h"

namespace orvane::test {

namespace {

constexpr const char* kGmailID = "6A2F3C1E-8D4B-4E7A-9C1D-2B3E4F5A6B7C";
constexpr const char* kOutlookID = "1B2C3D4E-5F60-4172-8394-A5B6C7D8E9F0";
constexpr const char* kGmailStore = "0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9";
constexpr const char* kOutlookStore = "9E8D7C6B-5A49-4382-B1A0-F9E8D7C6B5A4";

// Added to each stand-in page: it reports its load, every change of its
// compose form and any alert() to /report, so the test sees the pages
// without reaching into them. Loaded with "?mail-link", the page clicks a
// mailto: link of its own.
std::string reporter(const std::string& service) {
    std::string read = service == "gmail" ? "window.__fixture.dialogs()" : "Object.assign(window.__fixture.compose(), { log: window.__fixtureLog.map(e => e.type) })";
    return "(function () {\n"
           "  const report = (kind, data) => fetch('/report?service=" + service + "&kind=' + kind +\n"
           "    '&data=' + encodeURIComponent(JSON.stringify(data))).catch(() => {});\n"
           "  window.alert = text => report('alert', String(text));\n"
           "  report('loaded', location.pathname);\n"
           "  if (location.search === '?mail-link') {\n"
           "    const link = document.createElement('a');\n"
           "    link.href = 'mailto:eva@example.com?subject=From%20a%20page';\n"
           "    document.body.append(link);\n"
           "    link.click();\n"
           "  }\n"
           "  let last = '';\n"
           "  setInterval(() => {\n"
           "    let state;\n"
           "    try { state = " + read + "; } catch (e) { return; }\n"
           "    const text = JSON.stringify(state);\n"
           "    if (text !== last) { last = text; report('form', state); }\n"
           "  }, 100);\n"
           "})();\n";
}

} // namespace

class MailtoTest : public E2ETest {
protected:
    struct Report {
        std::string service;
        std::string kind;
        nlohmann::json data;
    };

    void SetUp() override {
        serveFixtureWithScript(server, "/gmail/", "/gmail/index.html", [] { return reporter("gmail"); });
        serveFixtureWithScript(server, "/outlook/mail/", "/outlook/mail/index.html", [] { return reporter("outlook"); });
        server.serve("/report", "", "text/plain");
    }

    // A Gmail account and an Outlook account.
    void writeAccounts(bool alwaysAsk, std::optional<std::string> defaultID = std::nullopt,
        const std::string& selectedID = kGmailID) {
        nlohmann::json file = {
            { "accounts", nlohmann::json::array({
                { { "id", kGmailID }, { "label", "ana@example.com" }, { "dataStoreID", kGmailStore }, { "colorSeed", 12 } },
                { { "id", kOutlookID }, { "label", "Work" }, { "dataStoreID", kOutlookStore }, { "colorSeed", 210 },
                    { "service", "outlook" } },
            }) },
            { "selectedAccountID", selectedID },
            { "alwaysAskOnMailto", alwaysAsk },
        };
        if (defaultID)
            file["defaultMailtoAccountID"] = *defaultID;
        orvane.writeAccountsFile(file);
    }

    bool start(const std::vector<std::string>& arguments = {}, const std::string& outlookPage = "/outlook/mail/") {
        orvane.overrideServices(server, "/gmail/", outlookPage, "/calendar/");
        return orvane.start(30s, arguments);
    }

    std::vector<Report> reports() const {
        std::vector<Report> result;
        for (const auto& request : server.requests("/report")) {
            GHashTable* params = g_uri_parse_params(request.query.c_str(), -1, "&", G_URI_PARAMS_NONE, nullptr);
            if (!params)
                continue;
            auto value = [&](const char* key) {
                auto* text = static_cast<const char*>(g_hash_table_lookup(params, key));
                return std::string(text ? text : "");
            };
            result.push_back({ value("service"), value("kind"), nlohmann::json::parse(value("data"), nullptr, false) });
            g_hash_table_unref(params);
        }
        return result;
    }
    bool loaded(const std::string& service) const {
        for (const auto& report : reports())
            if (report.service == service && report.kind == "loaded")
                return true;
        return false;
    }
    // The page's compose form as last reported: Gmail's first dialog, or
    // Outlook's form when it is open.
    nlohmann::json form(const std::string& service) const {
        nlohmann::json last;
        for (const auto& report : reports()) {
            if (report.service == service && report.kind == "form")
                last = report.data;
        }
        if (service == "gmail")
            return last.is_array() && !last.empty() ? last[0] : nlohmann::json();
        return last.is_object() && last.value("open", false) ? last : nlohmann::json();
    }
    // One text field of that form, or "" while there is none.
    std::string field(const std::string& service, const char* name) const {
        nlohmann::json current = form(service);
        return current.is_object() && current[name].is_string() ? current[name].get<std::string>() : std::string();
    }
    // What the Outlook stand-in said, for failure messages.
    std::string outlookReports() const {
        std::string text;
        for (const auto& report : reports())
            if (report.service == "outlook")
                text += report.kind + " " + report.data.dump() + "\n";
        return text;
    }
    int alerts() const {
        int count = 0;
        for (const auto& report : reports())
            count += report.kind == "alert";
        return count;
    }

    // A point of the content well away from the card: lower left, beside
    // the account column. The pages are light there; the picker's backdrop
    // darkens it.
    std::pair<int, int> backdropPoint() {
        auto geometry = orvane.geometry(mainWindow());
        if (!geometry)
            return { -1, -1 };
        return { geometry->x + 120, geometry->y + geometry->height - 30 };
    }
    bool pickerOnScreen(const std::string& name, bool shown) {
        auto point = backdropPoint();
        return waitForScreenshot(name, [&](const Screenshot& shot) {
            int red = shot.pixel(point.first, point.second).red;
            return shown ? red < 190 : red > 215;
        });
    }

    void waitForPages() {
        ASSERT_TRUE(waitUntil([&] { return loaded("gmail") && loaded("outlook"); }, 30s));
    }
};

TEST_F(MailtoTest, PickerKeyTwoComposesInTheSecondAccount) {
    writeAccounts(true);
    ASSERT_TRUE(start());
    waitForPages();
    ASSERT_TRUE(pickerOnScreen("before-link", false));

    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com,eva@example.com?subject=Quarterly%20numbers&body=See%20you%20at%2010"));
    ASSERT_TRUE(pickerOnScreen("picker", true));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);

    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "2"));
    ASSERT_TRUE(waitUntil([&] { return field("outlook", "body").find("See you at 10") != std::string::npos; }, 20s))
        << "selected " << orvane.selectedAccountID().value_or("none") << ", outlook reports: " << outlookReports();
    nlohmann::json outlook = form("outlook");
    EXPECT_EQ(outlook["to"], nlohmann::json::array({ "tom@example.com", "eva@example.com" }));
    EXPECT_EQ(outlook["subject"], "Quarterly numbers");
    EXPECT_EQ(orvane.selectedAccountID(), kOutlookID);
    EXPECT_TRUE(pickerOnScreen("after-pick", false));
    EXPECT_TRUE(form("gmail").is_null());
    orvane.screenshot("outlook-filled");
}

TEST_F(MailtoTest, EscapeAndABackdropClickLeaveNothingSelectedOrRemembered) {
    writeAccounts(true, std::nullopt, kOutlookID);
    ASSERT_TRUE(start());
    waitForPages();

    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com?subject=One"));
    ASSERT_TRUE(pickerOnScreen("picker-escape", true));
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "Escape"));
    ASSERT_TRUE(pickerOnScreen("after-escape", false));

    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com?subject=Two"));
    ASSERT_TRUE(pickerOnScreen("picker-click", true));
    auto point = backdropPoint();
    ASSERT_TRUE(orvane.click(point.first, point.second));
    ASSERT_TRUE(pickerOnScreen("after-click", false));

    EXPECT_EQ(orvane.selectedAccountID(), kOutlookID);
    EXPECT_TRUE(form("gmail").is_null());
    EXPECT_TRUE(form("outlook").is_null());

    // No sender was remembered: Return picks the first mail account.
    ASSERT_TRUE(orvane.openURL("mailto:tom@example.com?subject=Three"));
    ASSERT_TRUE(pickerOnScreen("picker-return", true));
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "Return"));
    EXPECT_TRUE(waitUntil([&] { return field("gmail", "subject") == "Three"; }, 20s));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);
    EXPECT_TRUE(form("outlook").is_null());
}

TEST_F(MailtoTest, DefaultAccountComposesWithoutAskingAndHostileTextStaysText) {
    // Starts on the Outlook account, so the switch to the sender shows.
    writeAccounts(false, kGmailID, kOutlookID);
    ASSERT_TRUE(start());
    waitForPages();

    const std::string subject = "\");alert(1)//";
    ASSERT_TRUE(orvane.openURL("mailto:ana%40example.org?subject=%22)%3Balert(1)%2F%2F&body=%3C%2Fscript%3E%3Cb%3Ebold%3C%2Fb%3E"));
    ASSERT_TRUE(waitUntil([&] { return field("gmail", "subject") == subject; }, 20s));
    nlohmann::json gmail = form("gmail");
    EXPECT_EQ(gmail["to"], nlohmann::json::array({ "ana@example.org" }));
    EXPECT_EQ(gmail["body"], "</script><b>bold</b>");
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);
    EXPECT_TRUE(pickerOnScreen("no-picker", false));
    EXPECT_EQ(alerts(), 0);
}

TEST_F(MailtoTest, ColdStartWithALinkFillsTheForm) {
    writeAccounts(false, kOutlookID);
    ASSERT_TRUE(start({ "mailto:eva@example.com?subject=From%20a%20cold%20start&body=Hello" }));
    ASSERT_TRUE(waitUntil([&] { return field("outlook", "body").find("Hello") != std::string::npos; }, 30s));
    nlohmann::json outlook = form("outlook");
    EXPECT_EQ(outlook["to"], nlohmann::json::array({ "eva@example.com" }));
    EXPECT_EQ(outlook["subject"], "From a cold start");
    EXPECT_EQ(orvane.selectedAccountID(), kOutlookID);
    orvane.screenshot("cold-start");
}

TEST_F(MailtoTest, AMailLinkInAPageIsRoutedAsOneFromTheDesktop) {
    writeAccounts(false, kGmailID, kOutlookID);
    ASSERT_TRUE(start({}, "/outlook/mail/?mail-link"));
    ASSERT_TRUE(waitUntil([&] { return field("gmail", "subject") == "From a page"; }, 30s));
    EXPECT_EQ(form("gmail")["to"], nlohmann::json::array({ "eva@example.com" }));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);
}

} // namespace orvane::test
