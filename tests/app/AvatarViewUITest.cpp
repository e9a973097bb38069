// The avatar tile, whose drawing is the feature: its pixels are checked. The
// colours and texts it draws from are AvatarStyleTest's.
#include "AvatarView.h"

#include "AppPaths.h"
#include "Files.h"
#include "WidgetTest.h"

#include <cmath>

namespace orvane::test {
namespace {

constexpr double kSize = 44;
constexpr int kMargin = 20;

struct Pixel {
    int red, green, blue;
    bool near(int r, int g, int b, int tolerance = 4) const {
        return std::abs(red - r) <= tolerance && std::abs(green - g) <= tolerance && std::abs(blue - b) <= tolerance;
    }
    bool near(const char* color, int tolerance = 4) const {
        GdkRGBA c;
        gdk_rgba_parse(&c, color);
        return near(int(std::lround(c.red * 255)), int(std::lround(c.green * 255)), int(std::lround(c.blue * 255)), tolerance);
    }
};
std::ostream& operator<<(std::ostream& out, const Pixel& p) { return out << "rgb(" << p.red << "," << p.green << "," << p.blue << ")"; }

constexpr const char* kBackground = "#fafafa";
constexpr const char* kWhite = "#ffffff";

// One tile with a margin around it, rendered by its window's renderer.
class AvatarViewTest : public WidgetTest {
protected:
    void SetUp() override {
        WidgetTest::SetUp();
        tile = ORVANE_AVATAR_VIEW(orvane_avatar_view_new());
        gtk_widget_set_halign(GTK_WIDGET(tile), GTK_ALIGN_START);
        gtk_widget_set_valign(GTK_WIDGET(tile), GTK_ALIGN_START);
        for (auto margin : { gtk_widget_set_margin_start, gtk_widget_set_margin_top, gtk_widget_set_margin_end, gtk_widget_set_margin_bottom })
            margin(GTK_WIDGET(tile), kMargin);
        present(GTK_WIDGET(tile));
    }
    static Account account(const std::string& label, int64_t seed, std::optional<AccountService> service = std::nullopt) {
        return Account { .id = newUUID(), .label = label, .dataStoreID = newUUID(), .colorSeed = seed, .service = service };
    }
    // Renders the window; pixels are then read at offsets from the tile's
    // corner. A widget whose size is being recomputed has nothing to draw yet.
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
        graphene_rect_t viewport = GRAPHENE_RECT_INIT(0, 0, float(width), float(height));
        auto texture = adopt(gsk_renderer_render_texture(gtk_native_get_renderer(GTK_NATIVE(window)), node, &viewport));
        gsk_render_node_unref(node);
        m_width = width;
        m_bytes.resize(size_t(width * height) * 4);
        gdk_texture_download(texture.get(), m_bytes.data(), size_t(width) * 4);
    }
    Pixel at(double dx, double dy) const {
        const uint8_t* p = m_bytes.data() + (size_t(kMargin + dy) * size_t(m_width) + size_t(kMargin + dx)) * 4;
        return { p[2], p[1], p[0] }; // B G R A, opaque
    }
    bool anyNear(const char* color, double left, double top, double right, double bottom, int tolerance) const {
        for (double x = left; x < right; ++x)
            for (double y = top; y < bottom; ++y)
                if (at(x, y).near(color, tolerance))
                    return true;
        return false;
    }

    OrvaneAvatarView* tile = nullptr;
    int m_width = 0;
    std::vector<uint8_t> m_bytes;
};

TEST_F(AvatarViewTest, DiscRingAndBadgeFollowTheAccountAndLeaveTheLayoutAlone) {
    // The disc in the seed's colour, the initial in white at its centre.
    for (auto [seed, r, g, b] : { std::tuple { 0, 204, 102, 102 }, { 120, 102, 204, 102 }, { -120, 102, 102, 204 } }) {
        orvane_avatar_view_set_account(tile, account("Work", seed));
        render();
        EXPECT_TRUE(at(6, kSize / 2).near(r, g, b, 3)) << seed << ": " << at(6, kSize / 2);
        EXPECT_TRUE(anyNear(kWhite, kSize / 2 - 6, kSize / 2 - 6, kSize / 2 + 6, kSize / 2 + 6, 10)) << seed;
    }
    // The selection ring is drawn outside the tile; without it and the
    // badge, the space around is background.
    EXPECT_TRUE(at(-3, kSize / 2).near(kBackground)) << at(-3, kSize / 2);
    EXPECT_TRUE(at(kSize + 2, kSize + 2).near(kBackground));
    orvane_avatar_view_set_selected(tile, TRUE);
    render();
    for (auto [dx, dy] : { std::pair { -3.5, kSize / 2 }, { kSize / 2, -3.5 }, { kSize + 3, kSize / 2 }, { kSize / 2, kSize + 3 } })
        EXPECT_TRUE(at(dx, dy).near("#3584e4", 12)) << dx << "," << dy << ": " << at(dx, dy);
    EXPECT_TRUE(at(-0.9, kSize / 2).near(kBackground, 40)) << at(-0.9, kSize / 2);
    EXPECT_TRUE(at(-6, kSize / 2).near(kBackground)) << at(-6, kSize / 2);

    // The service badge: red for mail, blue for calendars, overhanging the
    // tile's corner, ringed in the background colour, a white symbol inside.
    orvane_avatar_view_set_show_badge(tile, TRUE);
    const double side = kSize * 0.4, left = kSize - side + 4, top = kSize - side + 4;
    for (auto [service, color] : { std::pair { std::optional(AccountService::Mail), "#eb4236" },
             { std::nullopt, "#eb4236" }, { AccountService::Outlook, "#eb4236" }, { AccountService::Calendar, "#4285f5" } }) {
        SCOPED_TRACE(color);
        orvane_avatar_view_set_account(tile, account("Badge", 200, service));
        render();
        EXPECT_TRUE(at(left + side / 2, top + side - 3).near(color, 3)) << at(left + side / 2, top + side - 3);
        EXPECT_TRUE(at(kSize - 5, kSize + 1).near(color, 3)) << at(kSize - 5, kSize + 1);
        EXPECT_TRUE(at(left + side / 2, top + side - 0.7).near(kBackground, 6)) << at(left + side / 2, top + side - 0.7);
        EXPECT_TRUE(anyNear(kWhite, left + 2, top + 2, left + side - 2, top + side - 2, 30));
    }
    EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(tile)), int(kSize));
    EXPECT_EQ(gtk_widget_get_height(GTK_WIDGET(tile)), int(kSize));
}

TEST_F(AvatarViewTest, UnreadCapsuleFromOneUpAndPropertiesThatNotifyOnChange) {
    orvane_avatar_view_set_account(tile, account("Count", 240));
    // The red run on the capsule's middle row, from the tile's right edge.
    auto redRun = [&] {
        int run = 0;
        for (double x = kSize - 1.5; x > 0; --x)
            run += at(x, 7).near("#e01b24", 20);
        return run;
    };
    std::map<int64_t, int> runs;
    for (int64_t unread : { 0, -3, 1, 99, 100, 12345 }) {
        orvane_avatar_view_set_unread(tile, unread);
        render();
        runs[unread] = redRun();
        EXPECT_EQ(runs[unread] > 3, unread > 0) << unread;
        EXPECT_EQ(at(kSize - 3, 7).near("#e01b24", 20), unread > 0) << unread << ": " << at(kSize - 3, 7);
        EXPECT_TRUE(unread <= 0 || anyNear(kWhite, kSize - 30, 2, kSize, 13, 30)) << unread << ": white text inside";
    }
    EXPECT_GT(runs[100], runs[99]) << "99+ is wider than 99";
    EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(tile)), int(kSize));

    int notified = 0;
    g_signal_connect_swapped(tile, "notify", G_CALLBACK(+[](int* count) { ++*count; }), &notified);
    g_object_set(tile, "selected", TRUE, "unread", gint64(5), "size", 52.0, "show-badge", TRUE, nullptr);
    g_object_set(tile, "selected", TRUE, nullptr);
    EXPECT_EQ(notified, 4) << "only changed values notify";
    EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_width(GTK_WIDGET(tile)) == 52; }));
    orvane_avatar_view_set_size(tile, std::nan(""));
    EXPECT_EQ(orvane_avatar_view_get_size(tile), 44.0);
    char* id = nullptr;
    g_object_get(tile, "account-id", &id, nullptr);
    EXPECT_EQ(GCharPtr(id).get(), orvane_avatar_view_get_account(tile).id);
}

TEST_F(AvatarViewTest, PhotoWhenTheFileIsAnImageElseTheInitial) {
    const std::string folder = AppPaths::avatarsDir();
    auto pixbuf = adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 30, 60));
    gdk_pixbuf_fill(pixbuf.get(), 0x10c020ff);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/photo.png").c_str(), "png", nullptr, nullptr));
    ASSERT_TRUE(Files::replaceAtomically(folder + "/garbage.png", "this is not an image"));
    Account shown = account("Photo", 240);
    shown.avatarFileName = "photo.png";
    orvane_avatar_view_set_account(tile, shown);
    EXPECT_TRUE(orvane_avatar_view_has_photo(tile));
    render();
    // Scaled to fill (a tall image covers the whole width), clipped to a circle.
    EXPECT_TRUE(at(kSize / 2, kSize / 2).near(0x10, 0xc0, 0x20, 3)) << at(kSize / 2, kSize / 2);
    EXPECT_TRUE(at(3, kSize / 2).near(0x10, 0xc0, 0x20, 3)) << at(3, kSize / 2);
    EXPECT_TRUE(at(1, 1).near(kBackground)) << at(1, 1);

    for (const char* bad : { "garbage.png", "missing.png", "../accounts.json", "" }) {
        shown.avatarFileName = bad;
        orvane_avatar_view_set_account(tile, shown);
        EXPECT_FALSE(orvane_avatar_view_has_photo(tile)) << bad;
        render();
        EXPECT_TRUE(at(6, kSize / 2).near(102, 102, 204, 3)) << bad;
    }
    // A file that appears later is read on the next update of the account.
    shown.avatarFileName = "later.png";
    orvane_avatar_view_set_account(tile, shown);
    ASSERT_TRUE(gdk_pixbuf_save(pixbuf.get(), (folder + "/later.png").c_str(), "png", nullptr, nullptr));
    EXPECT_FALSE(orvane_avatar_view_has_photo(tile));
    orvane_avatar_view_set_account(tile, shown);
    EXPECT_TRUE(orvane_avatar_view_has_photo(tile));
}

} // namespace
} // namespace orvane::test
