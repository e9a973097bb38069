// The avatar tile, whose drawing is the feature: its pixels are checked. The
// colours and texts it draws from are AvatarStyleTest's.
#include "AvatarView.h"

#include "AppPaths.h"
#include "Files.h"
#include "WidgetTest.h"
#include "support/Screenshot.h"

#include <cmath>

namespace orvane::test {

using Color = Screenshot::Color;
static std::ostream& operator<<(std::ostream& out, const Color& c) {
    return out << "rgb(" << c.red << "," << c.green << "," << c.blue << ")";
}

namespace {

constexpr double kSize = 44;
constexpr int kMargin = 20;
constexpr Color kBackground { 0xfa, 0xfa, 0xfa }, kWhite { 0xff, 0xff, 0xff }, kBlue { 102, 102, 204 };
constexpr Color kMail { 0xeb, 0x42, 0x36 }, kCalendar { 0x42, 0x85, 0xf5 }, kUnread { 0xe0, 0x1b, 0x24 };

// One tile with a margin around it, rendered by its window's renderer.
class AvatarViewTest : public WidgetTest {
protected:
    void SetUp() override {
        WidgetTest::SetUp();
        tile = ORVANE_AVATAR_VIEW(orvane_avatar_view_new());
        GtkWidget* widget = GTK_WIDGET(tile);
        gtk_widget_set_halign(widget, GTK_ALIGN_START);
        gtk_widget_set_valign(widget, GTK_ALIGN_START);
        for (auto margin : { gtk_widget_set_margin_start, gtk_widget_set_margin_top,
                 gtk_widget_set_margin_end, gtk_widget_set_margin_bottom })
            margin(widget, kMargin);
        present(widget);
    }
    void show(int64_t seed, std::optional<AccountService> service = std::nullopt, std::string photo = "") {
        shown = Account { .id = newUUID(), .label = "Work", .dataStoreID = newUUID(), .avatarFileName = photo,
            .colorSeed = seed, .service = service };
        orvane_avatar_view_set_account(tile, shown);
    }
    // Renders the window into a picture; pixels are then read at offsets
    // from the tile's corner. A widget whose size is being recomputed has
    // nothing to draw yet.
    void render() {
        drainEvents();
        GtkWidget* root = GTK_WIDGET(window);
        int width = gtk_widget_get_width(root), height = gtk_widget_get_height(root);
        auto paintable = adopt(gtk_widget_paintable_new(root));
        GskRenderNode* node = nullptr;
        ASSERT_TRUE(waitUntil([&] {
            GtkSnapshot* snapshot = gtk_snapshot_new();
            gdk_paintable_snapshot(paintable.get(), snapshot, width, height);
            return (node = gtk_snapshot_free_to_node(snapshot)) != nullptr;
        }, 5s));
        GskRenderer* renderer = gtk_native_get_renderer(GTK_NATIVE(window));
        auto texture = adopt(gsk_renderer_render_texture(renderer, node, nullptr));
        gsk_render_node_unref(node);
        std::string path = makeTempFolder("avatar") + "/tile.png";
        ASSERT_TRUE(gdk_texture_save_to_png(texture.get(), path.c_str()));
        shot = Screenshot::load(path);
        ASSERT_TRUE(shot);
    }
    Color at(double dx, double dy) const { return shot->pixel(int(kMargin + dx), int(kMargin + dy)); }
    bool anyNear(Color color, double x0, double y0, double x1, double y1, int tolerance) const {
        Screenshot::Rect area { int(kMargin + x0), int(kMargin + y0), int(x1 - x0), int(y1 - y0) };
        return shot->share(area, color, tolerance) > 0;
    }

    OrvaneAvatarView* tile = nullptr;
    Account shown;
    int notified = 0; // outlives the tile
    std::optional<Screenshot> shot;
};

TEST_F(AvatarViewTest, DiscRingBadgeCapsuleAndPhotoAreDrawnWithoutResizingAndOnlyChangesNotify) {
    // The disc in the seed's colour, the initial in white at its centre.
    for (auto [seed, color] :
        { std::pair { 0, Color { 204, 102, 102 } }, { 120, { 102, 204, 102 } }, { -120, kBlue } }) {
        show(seed);
        render();
        EXPECT_TRUE(at(6, kSize / 2).near(color, 3)) << seed << ": " << at(6, kSize / 2);
        EXPECT_TRUE(anyNear(kWhite, kSize / 2 - 6, kSize / 2 - 6, kSize / 2 + 6, kSize / 2 + 6, 10)) << seed;
    }
    // The selection ring is drawn outside the tile; without it and the
    // badge, the space around is background.
    EXPECT_TRUE(at(-3, kSize / 2).near(kBackground, 4)) << at(-3, kSize / 2);
    EXPECT_TRUE(at(kSize + 2, kSize + 2).near(kBackground, 4));
    orvane_avatar_view_set_selected(tile, TRUE);
    render();
    for (auto [dx, dy] : { std::pair { -3.5, kSize / 2 }, { kSize / 2, -3.5 }, { kSize + 3, kSize / 2 },
             { kSize / 2, kSize + 3 } })
        EXPECT_TRUE(at(dx, dy).near({ 0x35, 0x84, 0xe4 }, 12)) << dx << "," << dy << ": " << at(dx, dy);
    EXPECT_TRUE(at(-0.9, kSize / 2).near(kBackground, 40)) << at(-0.9, kSize / 2);
    EXPECT_TRUE(at(-6, kSize / 2).near(kBackground, 4)) << at(-6, kSize / 2);

    // The service badge: red for mail, blue for calendars, overhanging the
    // tile's corner, ringed in the background colour, a white symbol inside.
    orvane_avatar_view_set_show_badge(tile, TRUE);
    const double side = kSize * 0.4, left = kSize - side + 4, top = kSize - side + 4;
    for (auto [service, color] :
        { std::pair { std::optional(AccountService::Mail), kMail }, { std::nullopt, kMail },
            { AccountService::Outlook, kMail }, { AccountService::Calendar, kCalendar } }) {
        SCOPED_TRACE(color.blue);
        show(200, service);
        render();
        EXPECT_TRUE(at(left + side / 2, top + side - 3).near(color, 3))
            << at(left + side / 2, top + side - 3);
        EXPECT_TRUE(at(kSize - 5, kSize + 1).near(color, 3)) << at(kSize - 5, kSize + 1);
        EXPECT_TRUE(at(left + side / 2, top + side - 0.7).near(kBackground, 6)) << "the ring";
        EXPECT_TRUE(anyNear(kWhite, left + 2, top + 2, left + side - 2, top + side - 2, 30));
    }

    // The unread capsule from one up, its red run on its middle row measured
    // from the tile's right edge, white text inside.
    orvane_avatar_view_set_show_badge(tile, FALSE);
    orvane_avatar_view_set_selected(tile, FALSE);
    show(-120);
    std::map<int64_t, int> runs;
    for (int64_t unread : { 0, -3, 1, 99, 100, 12345 }) {
        orvane_avatar_view_set_unread(tile, unread);
        render();
        for (double x = kSize - 1.5; x > 0; --x)
            runs[unread] += at(x, 7).near(kUnread, 20);
        EXPECT_EQ(runs[unread] > 3, unread > 0) << unread;
        EXPECT_EQ(at(kSize - 3, 7).near(kUnread, 20), unread > 0) << unread << ": " << at(kSize - 3, 7);
        EXPECT_TRUE(unread <= 0 || anyNear(kWhite, kSize - 30, 2, kSize, 13, 30)) << unread << ": white text";
    }
    EXPECT_GT(runs[100], runs[99]) << "99+ is wider than 99";
    EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(tile)), int(kSize));
    EXPECT_EQ(gtk_widget_get_height(GTK_WIDGET(tile)), int(kSize));

    // A photo when the file in the avatars folder is an image, else the disc.
    orvane_avatar_view_set_unread(tile, 0);
    const std::string folder = AppPaths::avatarsDir();
    auto pixbuf = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 30, 60));
    gdk_pixbuf_fill(pixbuf.get(), 0x10c020ff);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/photo.png").c_str(), "png", nullptr, nullptr));
    ASSERT_TRUE(Files::replaceAtomically(folder + "/garbage.png", "this is not an image"));
    for (const char* file : { "photo.png", "garbage.png", "missing.png", "../accounts.json", "" }) {
        show(-120, std::nullopt, file);
        bool photo = file == std::string("photo.png");
        EXPECT_EQ(orvane_avatar_view_has_photo(tile), photo) << file;
        render();
        // Scaled to fill (a tall image covers the whole width), clipped to a
        // circle; else the disc (the initial at its centre).
        Color expected = photo ? Color { 0x10, 0xc0, 0x20 } : kBlue;
        for (double dx : { photo ? kSize / 2 : 6, 3.0 })
            EXPECT_TRUE(at(dx, kSize / 2).near(expected, 3)) << file << ": " << at(dx, kSize / 2);
        EXPECT_TRUE(at(1, 1).near(kBackground, 4)) << at(1, 1);
    }
    // A file that appears later is read on the next update of the account.
    shown.avatarFileName = "later.png";
    orvane_avatar_view_set_account(tile, shown);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/later.png").c_str(), "png", nullptr, nullptr));
    EXPECT_FALSE(orvane_avatar_view_has_photo(tile));
    orvane_avatar_view_set_account(tile, shown);
    EXPECT_TRUE(orvane_avatar_view_has_photo(tile));

    g_signal_connect_swapped(tile, "notify", G_CALLBACK(+[](int* count) { ++*count; }), &notified);
    g_object_set(tile, "selected", TRUE, "unread", gint64(5), "size", 52.0, "show-badge", TRUE, nullptr);
    g_object_set(tile, "selected", TRUE, nullptr);
    EXPECT_EQ(notified, 4) << "only changed values notify";
    EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_width(GTK_WIDGET(tile)) == 52; }));
    orvane_avatar_view_set_size(tile, std::nan(""));
    EXPECT_EQ(orvane_avatar_view_get_size(tile), 44.0);
}

} // namespace
} // namespace orvane::test
