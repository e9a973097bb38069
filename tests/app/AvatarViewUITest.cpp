#include "AvatarView.h"

#include "AppPaths.h"
#include "AvatarStyle.h"
#include "Files.h"
#include "support/TestEnvironment.h"
#include "WidgetPixels.h"

#include <adwaita.h>
#include <gtest/gtest.h>

using namespace orvane;
using namespace orvane::test;

namespace {

constexpr double kSize = 44;
constexpr int kMargin = 20;

Account makeAccount(std::string label, int64_t seed, std::optional<AccountService> service = std::nullopt) {
    Account account;
    account.id = newUUID();
    account.dataStoreID = newUUID();
    account.label = std::move(label);
    account.colorSeed = seed;
    account.service = service;
    return account;
}

GdkRGBA parse(const char* text) {
    GdkRGBA color;
    gdk_rgba_parse(&color, text);
    return color;
}

// One tile with a margin around it in an undecorated window.
class AvatarViewTest : public testing::Test {
protected:
    void SetUp() override {
        adw_init();
        freshXDGFolders();
        m_tile = ORVANE_AVATAR_VIEW(orvane_avatar_view_new());
        gtk_widget_set_halign(GTK_WIDGET(m_tile), GTK_ALIGN_START);
        gtk_widget_set_valign(GTK_WIDGET(m_tile), GTK_ALIGN_START);
        gtk_widget_set_margin_start(GTK_WIDGET(m_tile), kMargin);
        gtk_widget_set_margin_top(GTK_WIDGET(m_tile), kMargin);
        gtk_widget_set_margin_end(GTK_WIDGET(m_tile), kMargin);
        gtk_widget_set_margin_bottom(GTK_WIDGET(m_tile), kMargin);
        m_window = showInWindow(GTK_WIDGET(m_tile));
    }
    void TearDown() override { gtk_window_destroy(m_window); }

    Rendering render() {
        drainEvents();
        Rendering r = renderWidget(GTK_WIDGET(m_window));
        static int n = 0;
        if (r && g_getenv("ORVANE_SCREENSHOT_DIR"))
            r.saveTo(std::string(g_getenv("ORVANE_SCREENSHOT_DIR")) + "/avatar-" + std::to_string(++n) + ".png");
        return r;
    }
    // Pixel at an offset from the tile's top-left corner.
    Pixel tileAt(const Rendering& r, double dx, double dy) { return r.at(kMargin + dx, kMargin + dy); }

    GdkRGBA windowBackground() { return parse("#fafafa"); }

    OrvaneAvatarView* m_tile = nullptr;
    GtkWindow* m_window = nullptr;
};

} // namespace

TEST_F(AvatarViewTest, DiscColourFollowsColorSeed) {
    struct Case { int64_t seed; int r, g, b; };
    for (Case c : { Case { 0, 204, 102, 102 }, Case { 120, 102, 204, 102 }, Case { 240, 102, 102, 204 },
             Case { 360, 204, 102, 102 }, Case { -120, 102, 102, 204 } }) {
        orvane_avatar_view_set_account(m_tile, makeAccount("Work", c.seed));
        Rendering r = render();
        ASSERT_TRUE(r);
        // Left of the initial, well inside the disc.
        Pixel p = tileAt(r, 6, kSize / 2);
        EXPECT_TRUE(p.near(c.r, c.g, c.b, 3)) << "seed " << c.seed << ": " << p;
        // The initial is drawn in white at the centre.
        bool anyWhite = false;
        for (double dx = -6; dx <= 6 && !anyWhite; dx += 1)
            for (double dy = -6; dy <= 6 && !anyWhite; dy += 1)
                anyWhite = tileAt(r, kSize / 2 + dx, kSize / 2 + dy).near(255, 255, 255, 10);
        EXPECT_TRUE(anyWhite) << "seed " << c.seed;
    }
}

TEST_F(AvatarViewTest, SelectionRingIsOutsideAndLeavesLayoutAlone) {
    orvane_avatar_view_set_account(m_tile, makeAccount("Ring", 120));
    Rendering before = render();
    ASSERT_TRUE(before);
    int width = gtk_widget_get_width(GTK_WIDGET(m_tile));
    int height = gtk_widget_get_height(GTK_WIDGET(m_tile));
    EXPECT_EQ(width, int(kSize));
    EXPECT_EQ(height, int(kSize));
    // 3 px outside the left edge, on the ring's centre line: background.
    EXPECT_TRUE(tileAt(before, -3, kSize / 2).near(windowBackground())) << tileAt(before, -3, kSize / 2);

    orvane_avatar_view_set_selected(m_tile, TRUE);
    Rendering after = render();
    GdkRGBA accent = parse("#3584e4");
    for (auto [dx, dy] : { std::pair { -3.5, kSize / 2 }, std::pair { kSize / 2, -3.5 },
             std::pair { kSize + 3, kSize / 2 }, std::pair { kSize / 2, kSize + 3 } })
        EXPECT_TRUE(tileAt(after, dx, dy).near(accent, 12)) << dx << "," << dy << ": " << tileAt(after, dx, dy);
    // Just outside the tile (1 px) and beyond the ring (6 px): background.
    EXPECT_TRUE(tileAt(after, -0.9, kSize / 2).near(windowBackground(), 40)) << tileAt(after, -0.9, kSize / 2);
    EXPECT_TRUE(tileAt(after, -6, kSize / 2).near(windowBackground())) << tileAt(after, -6, kSize / 2);
    EXPECT_TRUE(tileAt(after, 6, kSize / 2).near(102, 204, 102, 3));
    EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(m_tile)), width);
    EXPECT_EQ(gtk_widget_get_height(GTK_WIDGET(m_tile)), height);

    orvane_avatar_view_set_selected(m_tile, FALSE);
    EXPECT_TRUE(tileAt(render(), -3, kSize / 2).near(windowBackground()));
}

TEST_F(AvatarViewTest, ServiceBadgeColourAndSymbolByService) {
    double side = kSize * 0.4;
    double left = kSize - side + 4;
    double top = kSize - side + 4;
    auto countWhite = [&](const Rendering& r) {
        int white = 0;
        for (double x = left + 2; x < left + side - 2; x += 1)
            for (double y = top + 2; y < top + side - 2; y += 1)
                white += tileAt(r, x, y).near(255, 255, 255, 30);
        return white;
    };

    orvane_avatar_view_set_account(m_tile, makeAccount("Mail", 200, AccountService::Mail));
    Rendering none = render();
    // No badge: the bottom-right overhang is background.
    EXPECT_TRUE(tileAt(none, kSize + 2, kSize + 2).near(windowBackground()));

    orvane_avatar_view_set_show_badge(m_tile, TRUE);
    struct Case { std::optional<AccountService> service; GdkRGBA color; };
    GdkRGBA red { 0.92f, 0.26f, 0.21f, 1 };
    GdkRGBA blue { 0.26f, 0.52f, 0.96f, 1 };
    for (Case c : { Case { AccountService::Mail, red }, Case { std::nullopt, red }, Case { AccountService::Outlook, red },
             Case { AccountService::Calendar, blue } }) {
        orvane_avatar_view_set_account(m_tile, makeAccount("Badge", 200, c.service));
        Rendering r = render();
        // Near the disc's bottom, inside its 1.5 px border, below the symbol.
        Pixel fill = tileAt(r, left + side / 2, top + side - 3);
        EXPECT_TRUE(fill.near(c.color, 3)) << fill;
        // The disc overhangs the tile, drawn outside the widget's box.
        EXPECT_TRUE(tileAt(r, kSize - 5, kSize + 1).near(c.color, 3)) << tileAt(r, kSize - 5, kSize + 1);
        // Its border is the window background.
        EXPECT_TRUE(tileAt(r, left + side / 2, top + side - 0.7).near(windowBackground(), 6))
            << tileAt(r, left + side / 2, top + side - 0.7);
        // A white symbol sits in the middle.
        EXPECT_GT(countWhite(r), 10);
    }
}

TEST_F(AvatarViewTest, UnreadCapsuleFromOneUp) {
    orvane_avatar_view_set_account(m_tile, makeAccount("Count", 240));
    GdkRGBA red = parse("#e01b24");
    auto redRun = [&](const Rendering& r) {
        // Width of the red run on the capsule's middle row, from the right edge.
        int run = 0;
        for (double x = kSize - 1.5; x > 0; x -= 1)
            if (tileAt(r, x, 7).near(red, 20))
                ++run;
        return run;
    };
    for (int64_t unread : { int64_t(0), int64_t(-3) }) {
        orvane_avatar_view_set_unread(m_tile, unread);
        EXPECT_EQ(redRun(render()), 0) << unread;
    }
    int width99 = 0;
    for (int64_t unread : { int64_t(1), int64_t(99), int64_t(100), int64_t(12345) }) {
        orvane_avatar_view_set_unread(m_tile, unread);
        Rendering r = render();
        int run = redRun(r);
        EXPECT_GT(run, 3) << unread;
        // The capsule's right end touches the tile's right edge, the top its top.
        EXPECT_TRUE(tileAt(r, kSize - 3, 7).near(red, 20)) << unread << ": " << tileAt(r, kSize - 3, 7);
        // White text inside.
        bool anyWhite = false;
        for (double x = kSize - 30; x < kSize && !anyWhite; x += 1)
            for (double y = 2; y < 13 && !anyWhite; y += 1)
                anyWhite = tileAt(r, x, y).near(255, 255, 255, 30);
        EXPECT_TRUE(anyWhite) << unread;
        if (unread == 99)
            width99 = run;
        if (unread == 100) {
            EXPECT_GT(run, width99) << "99+ is wider than 99";
        }
    }
    // The capsule never changes the widget's size either.
    EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(m_tile)), int(kSize));
}

TEST_F(AvatarViewTest, PhotoWhenTheFileIsAnImageElseInitial) {
    std::string folder = AppPaths::avatarsDir();
    auto pixbuf = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 30, 60));
    gdk_pixbuf_fill(pixbuf.get(), 0x10c020ff);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/photo.png").c_str(), "png", nullptr, nullptr));
    ASSERT_TRUE(Files::replaceAtomically(folder + "/garbage.png", "this is not an image"));

    Account account = makeAccount("Photo", 240);
    account.avatarFileName = "photo.png";
    orvane_avatar_view_set_account(m_tile, account);
    EXPECT_TRUE(orvane_avatar_view_has_photo(m_tile));
    Rendering r = render();
    // Scaled to fill (a tall image covers the whole width), clipped to a circle.
    EXPECT_TRUE(tileAt(r, kSize / 2, kSize / 2).near(0x10, 0xc0, 0x20, 3)) << tileAt(r, kSize / 2, kSize / 2);
    EXPECT_TRUE(tileAt(r, 3, kSize / 2).near(0x10, 0xc0, 0x20, 3)) << tileAt(r, 3, kSize / 2);
    EXPECT_TRUE(tileAt(r, 1, 1).near(windowBackground())) << tileAt(r, 1, 1);

    for (const char* bad : { "garbage.png", "missing.png", "../accounts.json", "" }) {
        account.avatarFileName = bad;
        orvane_avatar_view_set_account(m_tile, account);
        EXPECT_FALSE(orvane_avatar_view_has_photo(m_tile)) << bad;
        EXPECT_TRUE(tileAt(render(), 6, kSize / 2).near(102, 102, 204, 3)) << bad;
    }

    // A file that appears later is read on the next update of the account.
    account.avatarFileName = "later.png";
    orvane_avatar_view_set_account(m_tile, account);
    EXPECT_FALSE(orvane_avatar_view_has_photo(m_tile));
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/later.png").c_str(), "png", nullptr, nullptr));
    orvane_avatar_view_set_account(m_tile, account);
    EXPECT_TRUE(orvane_avatar_view_has_photo(m_tile));
}

TEST_F(AvatarViewTest, PropertiesNotifyAndClamp) {
    int notified = 0;
    g_signal_connect(m_tile, "notify", G_CALLBACK(+[](GObject*, GParamSpec*, gpointer count) {
        ++*static_cast<int*>(count);
    }), &notified);
    g_object_set(m_tile, "selected", TRUE, "unread", gint64(5), "size", 52.0, "show-badge", TRUE, nullptr);
    EXPECT_EQ(notified, 4);
    g_object_set(m_tile, "selected", TRUE, nullptr);
    EXPECT_EQ(notified, 4) << "an unchanged value does not notify";
    EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_width(GTK_WIDGET(m_tile)) == 52; }));
    orvane_avatar_view_set_size(m_tile, std::nan(""));
    EXPECT_EQ(orvane_avatar_view_get_size(m_tile), 44.0);
    Account account = makeAccount("Id", 1);
    orvane_avatar_view_set_account(m_tile, account);
    char* id = nullptr;
    g_object_get(m_tile, "account-id", &id, nullptr);
    GCharPtr owned(id);
    EXPECT_STREQ(owned.get(), account.id.c_str());
}
