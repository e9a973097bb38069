// mailto: links end to end: a link orvane starts with, and one a page
// follows, go through the sender picker into the chosen account's compose
// form. The Gmail and Outlook stand-ins report their forms to the fixture
// server.
#include "E2ETest.h"

#include "support/FixturePageScript.h"

namespace orvane::test {

namespace {

constexpr const char* kGmailID = "6A2F3C1E-8D4B-4E7A-9C1D-2B3E4F5A6B7C";
constexpr const char* kOutlookID = "1B2C3D4E-5F60-4172-8394-A5B6C7D8E9F0";

// Added to each stand-in page: it reports its load and every change of its
// compose form to /report. Once Outlook's form holds the first link's
// body, the page follows a mailto: link of its own.
std::string reporter(const std::string& service) {
    std::string read = service == "gmail" ? "window.__fixture.dialogs()[0] || null" : "window.__fixture.compose()";
    return "(function () {\n"
           "  const report = (kind, data) => fetch('/report?service=" + service + "&kind=' + kind +\n"
           "    '&data=' + encodeURIComponent(JSON.stringify(data))).catch(() => {});\n"
           "  report('loaded', null);\n"
           "  let last = '', followed = false;\n"
           "  setInterval(() => {\n"
           "    let state;\n"
           "    try { state = " + read + "; } catch (e) { return; }\n"
           "    const text = JSON.stringify(state);\n"
           "    if (text !== last) { last = text; report('form', state); }\n"
           "    if (!followed && state && String(state.body).includes('See you at 10')) {\n"
           "      followed = true;\n"
           "      const link = document.createElement('a');\n"
           "      link.href = 'mailto:eva@example.com?subject=From%20a%20page';\n"
           "      document.body.append(link);\n"
           "      link.click();\n"
           "    }\n"
           "  }, 100);\n"
           "})();\n";
}

} // namespace

class MailtoTest : public E2ETest {
protected:
    void SetUp() override {
        serveFixtureWithScript(server, "/gmail/", "/gmail/index.html", [] { return reporter("gmail"); });
        serveFixtureWithScript(server, "/outlook/mail/", "/outlook/mail/index.html", [] { return reporter("outlook"); });
        server.serve("/report", "", "text/plain");
    }

    std::vector<nlohmann::json> reports(const std::string& service, const std::string& kind) const {
        std::vector<nlohmann::json> found;
        for (const auto& request : server.requests("/report")) {
            GHashTable* params = g_uri_parse_params(request.query.c_str(), -1, "&", G_URI_PARAMS_NONE, nullptr);
            auto value = [&](const char* key) {
                auto* text = params ? static_cast<const char*>(g_hash_table_lookup(params, key)) : nullptr;
                return std::string(text ? text : "");
            };
            if (value("service") == service && value("kind") == kind)
                found.push_back(nlohmann::json::parse(value("data"), nullptr, false));
            if (params)
                g_hash_table_unref(params);
        }
        return found;
    }
    nlohmann::json form(const std::string& service) const {
        auto forms = reports(service, "form");
        return forms.empty() ? nlohmann::json() : forms.back();
    }
    // A text field of the form, or "" while there is none.
    std::string field(const std::string& service, const char* name = "subject") const {
        auto form = this->form(service);
        return form.is_object() && form[name].is_string() ? form[name].get<std::string>() : "";
    }

    // The picker's backdrop darkens the content; the point (lower left,
    // beside the account column) is well away from its card.
    bool pickerOnScreen(const std::string& name, bool shown) {
        auto point = pointIn(mainWindow(), 0, 1);
        point = { point.first + 120, point.second - 30 };
        return waitForScreenshot(name, [&](const Screenshot& shot) {
            int red = shot.pixel(point.first, point.second).red;
            return shown ? red < 190 : red > 215;
        });
    }
};

TEST_F(MailtoTest, LinksFromTheDesktopAndFromAPageGoThroughThePickerIntoTheChosenAccount) {
    orvane.writeAccountsFile({
        { "accounts", {
            { { "id", kGmailID }, { "label", "ana@example.com" }, { "dataStoreID", "0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9" }, { "colorSeed", 12 } },
            { { "id", kOutlookID }, { "label", "Work" }, { "dataStoreID", "9E8D7C6B-5A49-4382-B1A0-F9E8D7C6B5A4" }, { "colorSeed", 210 },
                { "service", "outlook" } },
        } },
        { "selectedAccountID", kGmailID },
        { "alwaysAskOnMailto", true },
    });
    // A cold start with a link: the picker waits for the choice.
    ASSERT_TRUE(startOrvane("/gmail/", "/outlook/mail/", "/calendar/",
        { "mailto:tom@example.com,eva@example.com?subject=Quarterly%20numbers&body=See%20you%20at%2010" }));
    ASSERT_TRUE(waitUntil([&] { return !reports("gmail", "loaded").empty() && !reports("outlook", "loaded").empty(); }, 30s));
    ASSERT_TRUE(pickerOnScreen("picker", true));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);

    // Its key 2 picks the second account, which composes the link and is shown.
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "2"));
    ASSERT_TRUE(waitUntil([&] { return field("outlook", "body").find("See you at 10") != std::string::npos; }, 30s));
    auto outlook = form("outlook");
    EXPECT_EQ(outlook["to"], nlohmann::json::array({ "tom@example.com", "eva@example.com" }));
    EXPECT_EQ(outlook["subject"], "Quarterly numbers");
    EXPECT_EQ(orvane.selectedAccountID(), kOutlookID);
    EXPECT_EQ(field("gmail"), "");

    // The page then follows a mailto: link, routed the same way.
    ASSERT_TRUE(pickerOnScreen("picker-for-the-page", true));
    ASSERT_TRUE(orvane.pressKeys(mainWindow(), "1"));
    ASSERT_TRUE(waitUntil([&] { return field("gmail") == "From a page"; }, 20s));
    EXPECT_EQ(form("gmail")["to"], nlohmann::json::array({ "eva@example.com" }));
    EXPECT_EQ(orvane.selectedAccountID(), kGmailID);
    EXPECT_TRUE(pickerOnScreen("no-picker", false));
    EXPECT_EQ(field("outlook"), "Quarterly numbers");
}

} // namespace orvane::test
