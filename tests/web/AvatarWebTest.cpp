#include "AppPaths.h"
#include "Token.h"
#include "AvatarPhoto.h"
#include "AvatarRefresher.h"

#include "ManagerWebFixture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

namespace orvane::test {
namespace {

using Outcome = AvatarRefresher::Outcome;

std::string fixtureBytes(const std::string& path) {
    auto bytes = Files::read(FixtureServer::fixturesDir() + path, 1 << 22);
    EXPECT_TRUE(bytes) << path;
    return bytes.value_or("");
}

std::vector<std::string> avatarFiles() {
    std::vector<std::string> names;
    GDir* dir = g_dir_open(AppPaths::avatarsDir().c_str(), 0, nullptr);
    if (!dir)
        return names;
    while (const char* name = g_dir_read_name(dir))
        names.push_back(name);
    g_dir_close(dir);
    std::sort(names.begin(), names.end());
    return names;
}

std::string avatarPath(const std::string& name) { return AppPaths::avatarsDir() + "/" + name; }

TEST(AvatarPhoto, NamesAndDataAddresses) {
    EXPECT_EQ(AvatarPhoto::identity("https://lh3.example.com/a/photo=s64"), "https://lh3.example.com/a/photo=s64");
    const std::string data = "data:image/png;base64,aGk=";
    EXPECT_EQ(AvatarPhoto::identity(data), "owa:" + token(data));
    EXPECT_EQ(AvatarPhoto::identity("DATA:image/png;base64,aGk="), "DATA:image/png;base64,aGk=");

    const std::string id = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    EXPECT_EQ(AvatarPhoto::fileName(id, "owa:x"), id + "-" + token("owa:x") + ".png");
    EXPECT_FALSE(AvatarPhoto::fileName("3f2504e0-4f89-11d3-9a0c-0305e82c3301", "x"));
    EXPECT_FALSE(AvatarPhoto::fileName("../../etc/passwd", "x"));

    EXPECT_EQ(AvatarPhoto::dataURLBytes(data), "hi");
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:,aGVsbG8="), "hello");
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:text/plain;base64,aGVs,bG8="), std::nullopt) << "after the first comma";
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64"), std::nullopt);
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,"), std::nullopt);
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,aGk"), std::nullopt) << "padding is required";
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,aG k="), std::nullopt);
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,aGk=\n"), std::nullopt);
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,aG-_"), std::nullopt) << "not the URL alphabet";
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,a=k="), std::nullopt);
    EXPECT_EQ(AvatarPhoto::dataURLBytes("data:image/png;base64,===="), std::nullopt);
    EXPECT_EQ(AvatarPhoto::decodeBase64("+/+/"), std::string("\xfb\xff\xbf"));
    EXPECT_EQ(AvatarPhoto::decodeBase64("YWJj"), "abc");
    EXPECT_EQ(AvatarPhoto::decodeBase64("YWI="), "ab");
}

TEST(AvatarPhoto, OnlyImagesOfASensibleSizeAreAccepted) {
    std::string png = fixtureBytes("/gmail/photo.png");
    EXPECT_TRUE(AvatarRefresher::isImage(png));
    EXPECT_FALSE(AvatarRefresher::isImage(""));
    EXPECT_FALSE(AvatarRefresher::isImage("<html><body>Not Found</body></html>"));
    EXPECT_FALSE(AvatarRefresher::isImage(png.substr(0, png.size() / 2))) << "a cut-off image";

    auto tooWide = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, AvatarRefresher::kMaxPhotoSide + 1, 1));
    gdk_pixbuf_fill(tooWide.get(), 0x336699ff);
    gchar* buffer = nullptr;
    gsize size = 0;
    ASSERT_TRUE(gdk_pixbuf_save_to_buffer(tooWide.get(), &buffer, &size, "png", nullptr, nullptr));
    std::string wide(buffer, size);
    g_free(buffer);
    EXPECT_FALSE(AvatarRefresher::isImage(wide));
}

class AvatarWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        m_subscription = manager->avatars().observeFinished([this](const std::string& id, Outcome outcome) {
            m_outcomes.emplace_back(id, outcome);
        });
    }

    // The next refresh of the account to end, or nothing after the timeout.
    std::optional<Outcome> nextOutcome(const std::string& accountID, std::chrono::milliseconds timeout = 20s) {
        size_t& seen = m_seen[accountID];
        auto find = [&]() -> std::optional<size_t> {
            for (size_t i = seen; i < m_outcomes.size(); ++i)
                if (m_outcomes[i].first == accountID)
                    return i;
            return std::nullopt;
        };
        if (!waitUntil([&] { return find().has_value(); }, timeout))
            return std::nullopt;
        size_t index = *find();
        seen = index + 1;
        return m_outcomes[index].second;
    }
    bool anyOutcomeFor(const std::string& accountID) const {
        return std::any_of(m_outcomes.begin(), m_outcomes.end(), [&](const auto& o) { return o.first == accountID; });
    }

    // Requests for the path that Orvane made itself rather than a page: the
    // pages all send the Safari user agent.
    std::vector<FixtureServer::Request> ownRequests(const std::string& path) const {
        std::vector<FixtureServer::Request> own;
        for (const auto& request : server.requests(path)) {
            auto agent = request.headers.find("user-agent");
            if (agent == request.headers.end() || agent->second.find("AppleWebKit") == std::string::npos)
                own.push_back(request);
        }
        return own;
    }

    static void reload(WebKitWebView* view) { webkit_web_view_reload(view); }

private:
    std::vector<std::pair<std::string, Outcome>> m_outcomes;
    std::map<std::string, size_t> m_seen;
    AvatarRefresher::FinishedObservers::Subscription m_subscription;
};

TEST_F(AvatarWebTest, GmailPhotoIsFetchedOnceWithoutCookiesAndAgainWhenItsFileIsGone) {
    useServices("/gmail/");
    manager->configure(*store);
    const Account account = store->addAccount();
    const std::string photoURL = server.uri("/gmail/photo.png");
    const std::string expectedName = account.id + "-" + token(photoURL) + ".png";

    WebKitWebView* view = show(account);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    EXPECT_EQ(ownRequests("/gmail/photo.png").size(), 1u);
    EXPECT_EQ(avatarFiles(), std::vector<std::string> { expectedName });
    EXPECT_EQ(Files::read(avatarPath(expectedName), 1 << 22), fixtureBytes("/gmail/photo.png"));
    EXPECT_EQ(store->account(account.id)->avatarFileName, expectedName);
    EXPECT_EQ(store->account(account.id)->avatarSourceURL, photoURL);
    auto saved = Files::read(AppPaths::accountsFile(), 1 << 20);
    ASSERT_TRUE(saved);
    EXPECT_NE(saved->find(expectedName), std::string::npos) << "the store saved the change";

    // The same photo again with its file in place: one page script, no fetch.
    reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Unchanged);
    EXPECT_EQ(ownRequests("/gmail/photo.png").size(), 1u);

    // The account's session has a cookie for the host; the photo fetch does
    // not carry it.
    ASSERT_TRUE(runJS(view, "document.cookie = 'sid=secret-of-the-account; path=/'; document.cookie").ok);
    ASSERT_TRUE(Files::removeTree(avatarPath(expectedName)));
    reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    EXPECT_TRUE(Files::exists(avatarPath(expectedName)));
    auto own = ownRequests("/gmail/photo.png");
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own.back().method, "GET");
    EXPECT_FALSE(own.back().headers.contains("cookie"));
    auto pages = server.requests("/gmail/");
    ASSERT_FALSE(pages.empty());
    EXPECT_NE(pages.back().headers["cookie"].find("secret-of-the-account"), std::string::npos)
        << "the page itself sends the cookie, so the test can tell";
}

// Bytes that are not an image, an image sent with an error status, and an
// address too long to record: each refused, nothing written or recorded.
TEST_F(AvatarWebTest, RefusedPhotosAreNotStored) {
    useServices("/gmail/");
    const std::string png = fixtureBytes("/gmail/photo.png");
    const std::string page = fixtureBytes("/gmail/index.html");
    const std::string longSource = "photo.png?" + std::string(Account::kMaxPhotoAddressBytes, 'q');
    struct Case {
        std::string body;
        unsigned status;
        std::string source; // of the photo in the page
        size_t fetches;
    };
    const std::vector<Case> cases = {
        { "<html><body>Not Found</body></html>", 200, "photo.png", 1 },
        { png, 404, "photo.png", 1 },
        { png, 500, "photo.png", 1 },
        { png, 200, longSource, 0 },
    };
    manager->configure(*store);
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases.data());
        server.handle("/gmail/photo.png", [body = c.body, status = c.status](SoupServerMessage* message, const std::string&) {
            soup_server_message_set_status(message, status, nullptr);
            soup_server_message_set_response(message, "image/png", SOUP_MEMORY_COPY, body.data(), body.size());
        });
        std::string shown = page;
        shown.replace(shown.find("src=\"photo.png\""), strlen("src=\"photo.png\""), "src=\"" + c.source + "\"");
        server.serve("/gmail/", shown);
        server.resetCounts();
        const Account account = store->addAccount();
        show(account);
        EXPECT_EQ(nextOutcome(account.id), Outcome::Failed);
        EXPECT_EQ(ownRequests("/gmail/photo.png").size(), c.fetches);
        EXPECT_TRUE(avatarFiles().empty());
        EXPECT_FALSE(store->account(account.id)->avatarFileName);
        EXPECT_FALSE(store->account(account.id)->avatarSourceURL);
    }
}

TEST_F(AvatarWebTest, CalendarCompanionGetsThePhotoOfItsDataStore) {
    useServices("/gmail/");
    manager->configure(*store);
    const Account mail = store->addAccount();
    const Account calendar = store->addCalendar(mail);
    const Account other = store->addAccount(); // another data store: untouched
    WebKitWebView* calendarView = show(calendar);
    show(mail);
    ASSERT_EQ(nextOutcome(mail.id), Outcome::Stored);
    ASSERT_TRUE(waitLoaded(calendarView));
    drainEvents();

    const Account* storedMail = store->account(mail.id);
    const Account* storedCalendar = store->account(calendar.id);
    ASSERT_TRUE(storedMail->avatarFileName);
    EXPECT_EQ(storedCalendar->avatarFileName, storedMail->avatarFileName);
    EXPECT_EQ(storedCalendar->avatarSourceURL, storedMail->avatarSourceURL);
    EXPECT_FALSE(store->account(other.id)->avatarFileName);
    EXPECT_FALSE(anyOutcomeFor(calendar.id)) << "calendar pages never look for a photo";
    EXPECT_EQ(avatarFiles().size(), 1u);
}

TEST_F(AvatarWebTest, ANewPhotoReplacesTheOldFile) {
    useServices("/gmail/");
    manager->configure(*store);
    const Account account = store->addAccount();
    const Account calendar = store->addCalendar(*store->account(account.id));
    WebKitWebView* view = show(account);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    const std::string oldName = *store->account(account.id)->avatarFileName;

    // The page now shows another photo address.
    std::string page = fixtureBytes("/gmail/index.html");
    size_t at = page.find("src=\"photo.png\"");
    ASSERT_NE(at, std::string::npos);
    page.replace(at, strlen("src=\"photo.png\""), "src=\"photo.png?size=96\"");
    server.serve("/gmail/", page);
    const std::string newURL = server.uri("/gmail/photo.png?size=96");
    const std::string newName = account.id + "-" + token(newURL) + ".png";

    // Its file cannot be written (a folder holds its name): the old photo stays.
    ASSERT_TRUE(Files::makeFolder(avatarPath(newName)));
    reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Failed);
    EXPECT_TRUE(Files::exists(avatarPath(oldName)));
    EXPECT_EQ(store->account(account.id)->avatarFileName, oldName);
    ASSERT_TRUE(Files::removeTree(avatarPath(newName)));

    std::vector<std::vector<std::string>> filesSeen;
    auto watch = store->observe([&](unsigned) { filesSeen.push_back(avatarFiles()); });
    reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);

    EXPECT_NE(newName, oldName);
    EXPECT_EQ(avatarFiles(), std::vector<std::string> { newName });
    for (const std::string& id : { account.id, calendar.id }) {
        EXPECT_EQ(store->account(id)->avatarFileName, newName);
        EXPECT_EQ(store->account(id)->avatarSourceURL, newURL);
    }
    // While the accounts were switched over, both files were there.
    ASSERT_FALSE(filesSeen.empty());
    for (const auto& files : filesSeen)
        EXPECT_EQ(files.size(), 2u);
}

TEST_F(AvatarWebTest, OutlookDataAddressIsStoredUnderItsToken) {
    useServices("/gmail/", "/outlook/mail/");
    manager->configure(*store);
    const Account account = store->addOutlookAccount();
    // Named as a previous run's title left it: WebKit may report the first
    // load finished before the title that renames the account.
    Account named = account;
    named.label = "Display Name";
    store->update(named);
    show(account);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);

    // The page fetched the avatar labelled with the account's name and
    // handed it over inline.
    std::string avatar = fixtureBytes("/outlook/mail/avatar.png");
    GCharPtr encoded(g_base64_encode(reinterpret_cast<const guchar*>(avatar.data()), avatar.size()));
    const std::string dataURL = std::string("data:image/png;base64,") + encoded.get();
    const std::string identity = "owa:" + token(dataURL);
    const std::string name = account.id + "-" + token(identity) + ".png";
    const Account* stored = store->account(account.id);
    EXPECT_EQ(stored->label, "Display Name");
    EXPECT_EQ(stored->avatarSourceURL, identity);
    EXPECT_EQ(stored->avatarFileName, name);
    EXPECT_EQ(Files::read(avatarPath(name), 1 << 22), avatar);
    EXPECT_TRUE(ownRequests("/outlook/mail/avatar.png").empty()) << "Orvane fetched nothing itself";
}

} // namespace
} // namespace orvane::test
