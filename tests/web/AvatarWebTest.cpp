#include "AppPaths.h"
#include "AvatarPhoto.h"
#include "AvatarRefresher.h"
#include "PageProbe.h"
#include "Token.h"

#include "ManagerWebFixture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <deque>

namespace orvane::test {
namespace {

using Outcome = AvatarRefresher::Outcome;

std::string fixtureBytes(const std::string& path) {
    return Files::read(FixtureServer::fixturesDir() + path, 1 << 22).value_or("");
}
std::string avatarPath(const std::string& name) { return AppPaths::avatarsDir() + "/" + name; }

class AvatarWebTest : public ManagerWebFixture {
protected:
    void SetUp() override {
        ManagerWebFixture::SetUp();
        useServices("/gmail/");
        m_subscription = manager->avatars().observeFinished([this](const std::string& id, Outcome outcome) {
            m_outcomes[id].push_back(outcome);
        });
    }
    // The next refresh of the account to end, or nothing after the timeout.
    std::optional<Outcome> nextOutcome(const std::string& accountID) {
        auto& outcomes = m_outcomes[accountID];
        if (!waitUntil([&] { return !outcomes.empty(); }, 20s))
            return std::nullopt;
        Outcome next = outcomes.front();
        outcomes.pop_front();
        return next;
    }
    // Requests for the path that Orvane made itself, not a page (pages send the Safari user agent).
    std::vector<FixtureServer::Request> ownRequests(const std::string& path) const {
        auto own = server.requests(path);
        std::erase_if(own, [](auto& request) {
            return request.headers["user-agent"].find("AppleWebKit") != std::string::npos;
        });
        return own;
    }
    static std::map<std::string, std::string> avatars() { return filesIn(AppPaths::avatarsDir()); }
    // The stand-in Gmail page showing another photo address.
    void gmailPhotoAt(const std::string& source) {
        std::string page = fixtureBytes("/gmail/index.html");
        page.replace(page.find("src=\"photo.png\""), strlen("src=\"photo.png\""), "src=\"" + source + "\"");
        server.serve("/gmail/", page);
    }

    std::map<std::string, std::deque<Outcome>> m_outcomes;
    AvatarRefresher::FinishedObservers::Subscription m_subscription;
};

TEST_F(AvatarWebTest, PhotosAreFetchedWithoutCookiesSharedByTheDataStoreReplacedAndBadOnesRefused) {
    const Account account = store->addAccount();
    const Account calendar = store->addCalendar(account);
    const Account other = store->addAccount(); // another data store: untouched
    const std::string photoURL = server.uri("/gmail/photo.png");
    const std::string name = account.id + "-" + token(photoURL) + ".png";
    WebKitWebView* calendarView = show(calendar);
    WebKitWebView* view = show(account);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    ASSERT_TRUE(waitLoaded(calendarView));
    EXPECT_EQ(ownRequests("/gmail/photo.png").size(), 1u);
    const std::string photo = fixtureBytes("/gmail/photo.png");
    EXPECT_EQ(avatars(), (std::map<std::string, std::string> { { name, photo } }));
    for (const std::string& id : { account.id, calendar.id }) {
        EXPECT_EQ(store->account(id)->avatarFileName, name);
        EXPECT_EQ(store->account(id)->avatarSourceURL, photoURL);
    }
    EXPECT_FALSE(store->account(other.id)->avatarFileName);
    drainEvents();
    EXPECT_FALSE(m_outcomes.contains(calendar.id)) << "calendar pages never look for a photo";

    // The page probe the photo scripts run in: named arguments are variables
    // of the page's own world, the body may await, and only non-empty text up
    // to the limit comes back, once, cancelled or not.
    auto probe = [&](const std::string& body, GCancellable* cancellable = nullptr) {
        int calls = 0;
        std::optional<std::string> answer = "unset";
        PageProbe::photoURL(view, body, { { "acctName", "Ana \"Ruiz\" <ana@example.com>" } },
            [&](std::optional<std::string> text) {
                ++calls;
                answer = std::move(text);
            }, cancellable);
        if (cancellable)
            g_cancellable_cancel(cancellable);
        EXPECT_TRUE(waitUntil([&] { return calls > 0; })) << body;
        drainEvents();
        EXPECT_EQ(calls, 1) << body;
        return answer;
    };
    run(view, "window.pageValue = 'from the page'");
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 20)); return acctName + ' / ' + window.pageValue;"),
        "Ana \"Ruiz\" <ana@example.com> / from the page");
    const std::string limit = std::to_string(PageProbe::kMaxTextBytes);
    EXPECT_EQ(probe("return 'x'.repeat(" + limit + ");").value_or("").size(), PageProbe::kMaxTextBytes);
    for (const std::string& nothing : std::vector<std::string> { "return '';", "return 42;", "return { src: 'x' };",
             "return null;", "", "throw new Error('no photo');", "return Promise.reject('no');",
             "this is not a script", "return 'x'.repeat(" + limit + " + 1);" })
        EXPECT_EQ(probe(nothing), std::nullopt) << nothing;
    auto cancellable = adopt(g_cancellable_new());
    EXPECT_EQ(probe("await new Promise(r => setTimeout(r, 300)); return 'late';", cancellable.get()), std::nullopt);

    // The same photo with its file in place: no fetch. The account's session
    // has a cookie for the host; the fetch after the file went does not carry it.
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Unchanged);
    run(view, "document.cookie = 'sid=secret-of-the-account; path=/'");
    ASSERT_TRUE(Files::removeTree(avatarPath(name)));
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    auto own = ownRequests("/gmail/photo.png");
    ASSERT_EQ(own.size(), 2u);
    EXPECT_FALSE(own.back().headers.contains("cookie"));
    EXPECT_NE(server.requests("/gmail/").back().headers["cookie"].find("secret-of-the-account"), std::string::npos)
        << "the page itself sends the cookie, so the test can tell";

    // A new address whose file cannot be written (a folder holds its name):
    // the old photo stays. Then it is written, both files exist while the
    // accounts switch over, and the old one goes.
    gmailPhotoAt("photo.png?size=96");
    const std::string newURL = server.uri("/gmail/photo.png?size=96");
    const std::string newName = account.id + "-" + token(newURL) + ".png";
    ASSERT_TRUE(Files::makeFolder(avatarPath(newName)));
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Failed);
    EXPECT_EQ(store->account(account.id)->avatarFileName, name);
    EXPECT_TRUE(Files::exists(avatarPath(name)));
    ASSERT_TRUE(Files::removeTree(avatarPath(newName)));
    std::vector<size_t> filesSeen;
    auto watch = store->observe([&](unsigned) { filesSeen.push_back(avatars().size()); });
    webkit_web_view_reload(view);
    ASSERT_EQ(nextOutcome(account.id), Outcome::Stored);
    EXPECT_EQ(avatars(), (std::map<std::string, std::string> { { newName, photo } }));
    for (const std::string& id : { account.id, calendar.id })
        EXPECT_EQ(store->account(id)->avatarSourceURL, newURL);
    EXPECT_TRUE(!filesSeen.empty() && std::ranges::all_of(filesSeen, [](size_t n) { return n == 2; }));
    const std::map<std::string, std::string> gmailPhoto = avatars();

    // Outlook's photo comes inline.
    const Account outlook = store->addOutlookAccount();
    // Named as a previous run's title left it: WebKit may report the first
    // load finished before the title that renames the account.
    Account named = outlook;
    named.label = "Display Name";
    store->update(named);
    show(outlook);
    ASSERT_EQ(nextOutcome(outlook.id), Outcome::Stored);
    std::string avatar = fixtureBytes("/outlook/mail/avatar.png");
    GCharPtr encoded(g_base64_encode(reinterpret_cast<const guchar*>(avatar.data()), avatar.size()));
    const std::string identity = "owa:" + token(std::string("data:image/png;base64,") + encoded.get());
    const std::string outlookName = outlook.id + "-" + token(identity) + ".png";
    EXPECT_EQ(store->account(outlook.id)->avatarSourceURL, identity);
    EXPECT_EQ(store->account(outlook.id)->avatarFileName, outlookName);
    EXPECT_EQ(avatars().at(outlookName), avatar);
    EXPECT_TRUE(ownRequests("/outlook/mail/avatar.png").empty()) << "Orvane fetched nothing itself";
    ASSERT_TRUE(Files::removeTree(avatarPath(outlookName)));

    // Only canonical account ids name a photo file, and only whole images of a
    // sensible size are kept. (Base64 decoding itself is ImageBytesTest's.)
    EXPECT_FALSE(AvatarPhoto::fileName("3f2504e0-4f89-11d3-9a0c-0305e82c3301", "x"))
        << "only the canonical form";
    EXPECT_FALSE(AvatarPhoto::fileName("../../etc/passwd", "x"));
    auto tooWide = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, AvatarRefresher::kMaxPhotoSide + 1, 1));
    gdk_pixbuf_fill(tooWide.get(), 0x336699ff);
    gchar* buffer = nullptr;
    gsize size = 0;
    ASSERT_TRUE(gdk_pixbuf_save_to_buffer(tooWide.get(), &buffer, &size, "png", nullptr, nullptr));
    GCharPtr wide(buffer);
    const std::string half = avatar.substr(0, avatar.size() / 2);
    for (const std::string& bad : { std::string(), half, std::string(wide.get(), size) })
        EXPECT_FALSE(AvatarRefresher::isImage(bad)) << bad.size();

    // Bytes that are not an image, and an address too long to record: nothing
    // written or recorded. (Error statuses are HTTPFetchTest's.)
    server.serve("/gmail/photo.png", "<html><body>Not Found</body></html>", "image/png");
    for (const auto& [source, fetches] : { std::pair { std::string("photo.png"), 1u },
             { "photo.png?" + std::string(Account::kMaxPhotoAddressBytes, 'q'), 0u } }) {
        gmailPhotoAt(source);
        server.resetCounts();
        const Account another = store->addAccount();
        show(another);
        EXPECT_EQ(nextOutcome(another.id), Outcome::Failed);
        EXPECT_EQ(ownRequests("/gmail/photo.png").size(), fetches);
        EXPECT_EQ(avatars(), gmailPhoto);
        EXPECT_FALSE(store->account(another.id)->avatarFileName);
        EXPECT_FALSE(store->account(another.id)->avatarSourceURL);
    }
}

} // namespace
} // namespace orvane::test
