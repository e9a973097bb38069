#include "AvatarView.h"

#include "AppPaths.h"
#include "AvatarStyle.h"
#include "GRef.h"
#include "HeapBox.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

using namespace orvane;

namespace {

// Files above these bounds are never decoded: the photo comes from the web.
constexpr goffset kMaxPhotoBytes = 16 * 1024 * 1024;
constexpr int kMaxPhotoSide = 4096;

constexpr double kRingGap = 3.0;
constexpr double kRingWidth = 2.5;
constexpr double kHairlineWidth = 0.5;
constexpr double kBadgeShift = 4.0;
constexpr double kBadgeBorder = 1.5;
constexpr double kCapsuleFontSize = 10.0;
constexpr double kCapsulePadX = 5.0;
constexpr double kCapsulePadY = 1.0;

struct State {
    Account account;
    bool selected = false;
    int64_t unread = 0;
    double size = 44.0;
    bool showBadge = false;

    // The decoded photo and the file name it was read from.
    Ref<GdkTexture> photo;
    std::optional<std::string> photoFileName;
};

} // namespace

struct _OrvaneAvatarView {
    GtkWidget parent_instance;
    State* state;
};

G_DEFINE_FINAL_TYPE(OrvaneAvatarView, orvane_avatar_view, GTK_TYPE_WIDGET)

enum { PROP_0, PROP_SELECTED, PROP_UNREAD, PROP_SIZE, PROP_SHOW_BADGE, PROP_ACCOUNT_ID, N_PROPS };
static GParamSpec* s_props[N_PROPS];

// --- Helpers ---------------------------------------------------------------

static GdkRGBA rgba(const AvatarStyle::RGB& c, double alpha = 1.0) {
    return { float(c.red), float(c.green), float(c.blue), float(alpha) };
}

static GdkRGBA namedColor(GtkWidget* widget, const char* name, const char* fallback) {
    GdkRGBA color;
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    if (gtk_style_context_lookup_color(gtk_widget_get_style_context(widget), name, &color))
        return color;
    G_GNUC_END_IGNORE_DEPRECATIONS
    gdk_rgba_parse(&color, fallback);
    return color;
}

// The store only holds plain file names (checked when the file was read).
static Ref<GdkTexture> loadPhoto(const std::string& fileName) {
    GCharPtr path(g_build_filename(AppPaths::avatarsDir().c_str(), fileName.c_str(), nullptr));
    auto file = adopt(g_file_new_for_path(path.get()));
    auto info = adopt(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_TYPE "," G_FILE_ATTRIBUTE_STANDARD_SIZE,
        G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    if (!info || g_file_info_get_file_type(info.get()) != G_FILE_TYPE_REGULAR
        || g_file_info_get_size(info.get()) > kMaxPhotoBytes)
        return {};
    int width = 0;
    int height = 0;
    if (!gdk_pixbuf_get_file_info(path.get(), &width, &height) || width <= 0 || height <= 0
        || width > kMaxPhotoSide || height > kMaxPhotoSide)
        return {};
    return adopt(gdk_texture_new_from_file(file.get(), nullptr));
}

static void appendCircleBorder(GtkSnapshot* snapshot, const graphene_rect_t& frame, double width, const GdkRGBA& color) {
    GskRoundedRect circle;
    gsk_rounded_rect_init_from_rect(&circle, &frame, frame.size.width / 2);
    float widths[4] = { float(width), float(width), float(width), float(width) };
    GdkRGBA colors[4] = { color, color, color, color };
    gtk_snapshot_append_border(snapshot, &circle, widths, colors);
}

static void appendRoundedFill(GtkSnapshot* snapshot, const graphene_rect_t& frame, double radius, const GdkRGBA& color) {
    GskRoundedRect shape;
    gsk_rounded_rect_init_from_rect(&shape, &frame, float(radius));
    gtk_snapshot_push_rounded_clip(snapshot, &shape);
    gtk_snapshot_append_color(snapshot, &color, &frame);
    gtk_snapshot_pop(snapshot);
}

static Ref<PangoLayout> makeLayout(GtkWidget* widget, const std::string& text, double pixelSize, PangoWeight weight) {
    auto layout = adopt(gtk_widget_create_pango_layout(widget, text.c_str()));
    PangoFontDescription* font = pango_font_description_copy(
        pango_context_get_font_description(pango_layout_get_context(layout.get())));
    pango_font_description_set_absolute_size(font, pixelSize * PANGO_SCALE);
    pango_font_description_set_weight(font, weight);
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);
    return layout;
}

static void appendLayoutCentered(GtkSnapshot* snapshot, PangoLayout* layout, const graphene_rect_t& frame, const GdkRGBA& color) {
    PangoRectangle logical;
    pango_layout_get_extents(layout, nullptr, &logical);
    double w = double(logical.width) / PANGO_SCALE;
    double h = double(logical.height) / PANGO_SCALE;
    double x = frame.origin.x + (frame.size.width - w) / 2 - double(logical.x) / PANGO_SCALE;
    double y = frame.origin.y + (frame.size.height - h) / 2 - double(logical.y) / PANGO_SCALE;
    graphene_point_t origin = GRAPHENE_POINT_INIT(float(x), float(y));
    gtk_snapshot_save(snapshot);
    gtk_snapshot_translate(snapshot, &origin);
    gtk_snapshot_append_layout(snapshot, layout, &color);
    gtk_snapshot_restore(snapshot);
}

// --- Drawing ---------------------------------------------------------------

static void snapshotPicture(OrvaneAvatarView* self, GtkSnapshot* snapshot, const graphene_rect_t& tile) {
    State& s = *self->state;
    GskRoundedRect circle;
    gsk_rounded_rect_init_from_rect(&circle, &tile, tile.size.width / 2);
    gtk_snapshot_push_rounded_clip(snapshot, &circle);
    if (s.photo) {
        double tw = gdk_texture_get_width(s.photo.get());
        double th = gdk_texture_get_height(s.photo.get());
        double scale = std::max(tile.size.width / tw, tile.size.height / th);
        double w = tw * scale;
        double h = th * scale;
        graphene_rect_t bounds = GRAPHENE_RECT_INIT(float(tile.origin.x + (tile.size.width - w) / 2),
            float(tile.origin.y + (tile.size.height - h) / 2), float(w), float(h));
        gtk_snapshot_append_texture(snapshot, s.photo.get(), &bounds);
    } else {
        AvatarStyle::HSV hsv = AvatarStyle::colorForSeed(s.account.colorSeed);
        float red = 0, green = 0, blue = 0;
        gtk_hsv_to_rgb(float(hsv.hue), float(hsv.saturation), float(hsv.value), &red, &green, &blue);
        GdkRGBA disc = { red, green, blue, 1 };
        gtk_snapshot_append_color(snapshot, &disc, &tile);
        auto layout = makeLayout(GTK_WIDGET(self), AvatarStyle::initialForLabel(s.account.label), s.size * 0.42,
            PANGO_WEIGHT_SEMIBOLD);
        GdkRGBA white = { 1, 1, 1, 1 };
        appendLayoutCentered(snapshot, layout.get(), tile, white);
    }
    gtk_snapshot_pop(snapshot);
    appendCircleBorder(snapshot, tile, kHairlineWidth, GdkRGBA { 0, 0, 0, 0.08f });
}

static void snapshotRing(OrvaneAvatarView* self, GtkSnapshot* snapshot, const graphene_rect_t& tile) {
    GtkWidget* widget = GTK_WIDGET(self);
    bool focusShown = gtk_widget_has_visible_focus(widget);
    if (!self->state->selected && !focusShown)
        return;
    // The stroke is centred on a circle 3 px outside the tile's edge.
    graphene_rect_t ring;
    graphene_rect_inset_r(&tile, -float(kRingGap + kRingWidth / 2), -float(kRingGap + kRingWidth / 2), &ring);
    GdkRGBA accent = namedColor(widget, "accent_bg_color", "#3584e4");
    if (!self->state->selected)
        accent.alpha *= 0.5f;
    appendCircleBorder(snapshot, ring, kRingWidth, accent);
}

static void snapshotServiceBadge(OrvaneAvatarView* self, GtkSnapshot* snapshot, const graphene_rect_t& tile) {
    State& s = *self->state;
    GtkWidget* widget = GTK_WIDGET(self);
    bool calendar = s.account.isCalendar();
    double side = s.size * 0.4;
    graphene_rect_t badge = GRAPHENE_RECT_INIT(float(tile.origin.x + tile.size.width - side + kBadgeShift),
        float(tile.origin.y + tile.size.height - side + kBadgeShift), float(side), float(side));
    appendRoundedFill(snapshot, badge, side / 2, rgba(calendar ? AvatarStyle::kCalendarColor : AvatarStyle::kMailColor));
    appendCircleBorder(snapshot, badge, kBadgeBorder, namedColor(widget, "window_bg_color", "#fafafa"));

    // Adwaita's symbols fill their whole box, so they get a slightly larger
    // box than the glyph size to match the weight of a symbol font.
    int iconSize = std::max(1, int(std::lround(s.size * 0.25)));
    auto icon = adopt(gtk_icon_theme_lookup_icon(gtk_icon_theme_get_for_display(gtk_widget_get_display(widget)),
        calendar ? "x-office-calendar-symbolic" : "mail-unread-symbolic", nullptr, iconSize,
        gtk_widget_get_scale_factor(widget), gtk_widget_get_direction(widget), GtkIconLookupFlags(0)));
    if (!icon)
        return;
    float x = std::round(badge.origin.x + (side - iconSize) / 2);
    float y = std::round(badge.origin.y + (side - iconSize) / 2);
    GdkRGBA colors[4] = { { 1, 1, 1, 1 }, { 1, 1, 1, 1 }, { 1, 1, 1, 1 }, { 1, 1, 1, 1 } };
    graphene_point_t origin = GRAPHENE_POINT_INIT(x, y);
    gtk_snapshot_save(snapshot);
    gtk_snapshot_translate(snapshot, &origin);
    gtk_symbolic_paintable_snapshot_symbolic(GTK_SYMBOLIC_PAINTABLE(icon.get()), snapshot, iconSize, iconSize, colors, 4);
    gtk_snapshot_restore(snapshot);
}

static void snapshotUnreadCapsule(OrvaneAvatarView* self, GtkSnapshot* snapshot, const graphene_rect_t& tile) {
    std::string text = AvatarStyle::unreadText(self->state->unread);
    if (text.empty())
        return;
    GtkWidget* widget = GTK_WIDGET(self);
    auto layout = makeLayout(widget, text, kCapsuleFontSize, PANGO_WEIGHT_BOLD);
    PangoRectangle logical;
    pango_layout_get_pixel_extents(layout.get(), nullptr, &logical);
    double height = logical.height + 2 * kCapsulePadY;
    double width = std::max(height, logical.width + 2 * kCapsulePadX);
    graphene_rect_t capsule = GRAPHENE_RECT_INIT(float(tile.origin.x + tile.size.width - width), tile.origin.y,
        float(width), float(height));
    appendRoundedFill(snapshot, capsule, height / 2, namedColor(widget, "error_bg_color", "#e01b24"));
    GskRoundedRect outline;
    gsk_rounded_rect_init_from_rect(&outline, &capsule, float(height / 2));
    GdkRGBA window = namedColor(widget, "window_bg_color", "#fafafa");
    float widths[4] = { float(kBadgeBorder), float(kBadgeBorder), float(kBadgeBorder), float(kBadgeBorder) };
    GdkRGBA colors[4] = { window, window, window, window };
    gtk_snapshot_append_border(snapshot, &outline, widths, colors);
    appendLayoutCentered(snapshot, layout.get(), capsule, GdkRGBA { 1, 1, 1, 1 });
}

static void orvane_avatar_view_snapshot(GtkWidget* widget, GtkSnapshot* snapshot) {
    auto* self = ORVANE_AVATAR_VIEW(widget);
    double size = self->state->size;
    graphene_rect_t tile = GRAPHENE_RECT_INIT(float((gtk_widget_get_width(widget) - size) / 2),
        float((gtk_widget_get_height(widget) - size) / 2), float(size), float(size));
    snapshotPicture(self, snapshot, tile);
    snapshotRing(self, snapshot, tile);
    if (self->state->showBadge)
        snapshotServiceBadge(self, snapshot, tile);
    snapshotUnreadCapsule(self, snapshot, tile);
}

static void orvane_avatar_view_measure(GtkWidget* widget, GtkOrientation, int, int* minimum, int* natural,
    int* minimumBaseline, int* naturalBaseline) {
    int side = int(std::ceil(ORVANE_AVATAR_VIEW(widget)->state->size));
    *minimum = *natural = side;
    *minimumBaseline = *naturalBaseline = -1;
}

// A popover parented to a tile (its context menu) is placed with the tile.
static void orvane_avatar_view_size_allocate(GtkWidget* widget, int, int, int) {
    for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
        if (GTK_IS_POPOVER(child))
            gtk_popover_present(GTK_POPOVER(child));
    }
}

// Theme colours (window background, accent) are read while drawing, so any
// style change, such as the switch to dark mode, needs a redraw.
static void orvane_avatar_view_css_changed(GtkWidget* widget, GtkCssStyleChange* change) {
    GTK_WIDGET_CLASS(orvane_avatar_view_parent_class)->css_changed(widget, change);
    gtk_widget_queue_draw(widget);
}

static void orvane_avatar_view_state_flags_changed(GtkWidget* widget, GtkStateFlags previous) {
    GTK_WIDGET_CLASS(orvane_avatar_view_parent_class)->state_flags_changed(widget, previous);
    if ((previous ^ gtk_widget_get_state_flags(widget)) & GTK_STATE_FLAG_FOCUS_VISIBLE)
        gtk_widget_queue_draw(widget);
}

// --- GObject ---------------------------------------------------------------

static void orvane_avatar_view_get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    auto* self = ORVANE_AVATAR_VIEW(object);
    switch (id) {
    case PROP_SELECTED: g_value_set_boolean(value, self->state->selected); break;
    case PROP_UNREAD: g_value_set_int64(value, self->state->unread); break;
    case PROP_SIZE: g_value_set_double(value, self->state->size); break;
    case PROP_SHOW_BADGE: g_value_set_boolean(value, self->state->showBadge); break;
    case PROP_ACCOUNT_ID: g_value_set_string(value, self->state->account.id.c_str()); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

static void orvane_avatar_view_set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    auto* self = ORVANE_AVATAR_VIEW(object);
    switch (id) {
    case PROP_SELECTED: orvane_avatar_view_set_selected(self, g_value_get_boolean(value)); break;
    case PROP_UNREAD: orvane_avatar_view_set_unread(self, g_value_get_int64(value)); break;
    case PROP_SIZE: orvane_avatar_view_set_size(self, g_value_get_double(value)); break;
    case PROP_SHOW_BADGE: orvane_avatar_view_set_show_badge(self, g_value_get_boolean(value)); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

static void orvane_avatar_view_dispose(GObject* object) {
    GtkWidget* widget = GTK_WIDGET(object);
    while (GtkWidget* child = gtk_widget_get_first_child(widget))
        gtk_widget_unparent(child);
    G_OBJECT_CLASS(orvane_avatar_view_parent_class)->dispose(object);
}

static void orvane_avatar_view_finalize(GObject* object) {
    HeapBox::free<State>(ORVANE_AVATAR_VIEW(object)->state);
    G_OBJECT_CLASS(orvane_avatar_view_parent_class)->finalize(object);
}

static void orvane_avatar_view_class_init(OrvaneAvatarViewClass* klass) {
    GObjectClass* objectClass = G_OBJECT_CLASS(klass);
    objectClass->get_property = orvane_avatar_view_get_property;
    objectClass->set_property = orvane_avatar_view_set_property;
    objectClass->dispose = orvane_avatar_view_dispose;
    objectClass->finalize = orvane_avatar_view_finalize;

    GtkWidgetClass* widgetClass = GTK_WIDGET_CLASS(klass);
    widgetClass->snapshot = orvane_avatar_view_snapshot;
    widgetClass->measure = orvane_avatar_view_measure;
    widgetClass->size_allocate = orvane_avatar_view_size_allocate;
    widgetClass->css_changed = orvane_avatar_view_css_changed;
    widgetClass->state_flags_changed = orvane_avatar_view_state_flags_changed;
    gtk_widget_class_set_css_name(widgetClass, "avatar");
    gtk_widget_class_set_accessible_role(widgetClass, GTK_ACCESSIBLE_ROLE_IMG);

    auto flags = GParamFlags(G_PARAM_READWRITE | G_PARAM_EXPLICIT_NOTIFY | G_PARAM_STATIC_STRINGS);
    s_props[PROP_SELECTED] = g_param_spec_boolean("selected", nullptr, nullptr, FALSE, flags);
    s_props[PROP_UNREAD] = g_param_spec_int64("unread", nullptr, nullptr, G_MININT64, G_MAXINT64, 0, flags);
    s_props[PROP_SIZE] = g_param_spec_double("size", nullptr, nullptr, 1.0, 1024.0, 44.0, flags);
    s_props[PROP_SHOW_BADGE] = g_param_spec_boolean("show-badge", nullptr, nullptr, FALSE, flags);
    s_props[PROP_ACCOUNT_ID] = g_param_spec_string("account-id", nullptr, nullptr, "",
        GParamFlags(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));
    g_object_class_install_properties(objectClass, N_PROPS, s_props);
}

static void orvane_avatar_view_init(OrvaneAvatarView* self) {
    self->state = HeapBox::make<State>();
    gtk_widget_set_overflow(GTK_WIDGET(self), GTK_OVERFLOW_VISIBLE);
}

// --- Public ----------------------------------------------------------------

GtkWidget* orvane_avatar_view_new(void) {
    return GTK_WIDGET(g_object_new(ORVANE_TYPE_AVATAR_VIEW, nullptr));
}

gboolean orvane_avatar_view_get_selected(OrvaneAvatarView* self) { return self->state->selected; }
int64_t orvane_avatar_view_get_unread(OrvaneAvatarView* self) { return self->state->unread; }
double orvane_avatar_view_get_size(OrvaneAvatarView* self) { return self->state->size; }
gboolean orvane_avatar_view_get_show_badge(OrvaneAvatarView* self) { return self->state->showBadge; }

void orvane_avatar_view_set_selected(OrvaneAvatarView* self, gboolean selected) {
    if (self->state->selected == bool(selected))
        return;
    self->state->selected = selected;
    gtk_widget_queue_draw(GTK_WIDGET(self));
    g_object_notify_by_pspec(G_OBJECT(self), s_props[PROP_SELECTED]);
}

void orvane_avatar_view_set_unread(OrvaneAvatarView* self, int64_t unread) {
    if (self->state->unread == unread)
        return;
    self->state->unread = unread;
    gtk_widget_queue_draw(GTK_WIDGET(self));
    g_object_notify_by_pspec(G_OBJECT(self), s_props[PROP_UNREAD]);
}

void orvane_avatar_view_set_size(OrvaneAvatarView* self, double size) {
    size = std::clamp(std::isfinite(size) ? size : 44.0, 1.0, 1024.0);
    if (self->state->size == size)
        return;
    self->state->size = size;
    gtk_widget_queue_resize(GTK_WIDGET(self));
    g_object_notify_by_pspec(G_OBJECT(self), s_props[PROP_SIZE]);
}

void orvane_avatar_view_set_show_badge(OrvaneAvatarView* self, gboolean show) {
    if (self->state->showBadge == bool(show))
        return;
    self->state->showBadge = show;
    gtk_widget_queue_draw(GTK_WIDGET(self));
    g_object_notify_by_pspec(G_OBJECT(self), s_props[PROP_SHOW_BADGE]);
}

void orvane_avatar_view_set_account(OrvaneAvatarView* self, const Account& account) {
    State& s = *self->state;
    bool idChanged = s.account.id != account.id;
    if (account.avatarFileName != s.photoFileName || !s.photo) {
        s.photo = account.avatarFileName ? loadPhoto(*account.avatarFileName) : Ref<GdkTexture>();
        s.photoFileName = account.avatarFileName;
    }
    s.account = account;
    gtk_widget_queue_draw(GTK_WIDGET(self));
    if (idChanged)
        g_object_notify_by_pspec(G_OBJECT(self), s_props[PROP_ACCOUNT_ID]);
}

const Account& orvane_avatar_view_get_account(OrvaneAvatarView* self) { return self->state->account; }

bool orvane_avatar_view_has_photo(OrvaneAvatarView* self) { return bool(self->state->photo); }
