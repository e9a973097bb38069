#include "DownloadsButton.h"

#include "DesktopFiles.h"

#include <glib/gi18n-lib.h>

#include <algorithm>
#include <numbers>

namespace orvane {

namespace {

constexpr int kRingSize = 16;
constexpr double kRingWidth = 2.5;

std::string pathOf(GVariant* parameter) {
    return parameter && g_variant_is_of_type(parameter, G_VARIANT_TYPE_STRING) ? g_variant_get_string(parameter, nullptr) : "";
}

// An action of the window's "downloads" group, on a file's absolute path.
// The window holds the group, so the actions never outlive it.
template <void (*Run)(GtkWindow*, const std::string&)>
void addAction(GSimpleActionGroup* group, const char* name, GtkWindow* window) {
    Ref<GSimpleAction> action = adopt(g_simple_action_new(name, G_VARIANT_TYPE_STRING));
    g_signal_connect(action.get(), "activate", G_CALLBACK(+[](GSimpleAction*, GVariant* parameter, gpointer window) {
        if (std::string path = pathOf(parameter); g_path_is_absolute(path.c_str()))
            Run(GTK_WINDOW(window), path);
    }), window);
    g_action_map_add_action(G_ACTION_MAP(group), G_ACTION(action.get()));
}

GtkWidget* rowFor(const DownloadList::Item& item, GtkWidget** bar) {
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_widget_add_css_class(box, "orvane-download");
    GtkWidget* line = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    gtk_widget_set_hexpand(texts, TRUE);
    gtk_widget_set_valign(texts, GTK_ALIGN_CENTER);
    GtkWidget* name = gtk_label_new(item.name.c_str());
    gtk_label_set_ellipsize(GTK_LABEL(name), PANGO_ELLIPSIZE_MIDDLE);
    gtk_label_set_xalign(GTK_LABEL(name), 0);
    gtk_box_append(GTK_BOX(texts), name);
    const char* status = item.state == DownloadList::State::Failed ? _("Failed")
        : item.state == DownloadList::State::Finished               ? _("Finished")
                                                                    : nullptr;
    if (status) {
        GtkWidget* label = gtk_label_new(status);
        gtk_label_set_xalign(GTK_LABEL(label), 0);
        gtk_widget_add_css_class(label, "dim-label");
        gtk_widget_add_css_class(label, "caption");
        gtk_box_append(GTK_BOX(texts), label);
    }
    gtk_box_append(GTK_BOX(line), texts);
    if (item.state == DownloadList::State::Finished) {
        GtkWidget* show = gtk_button_new_from_icon_name("folder-open-symbolic");
        gtk_widget_set_valign(show, GTK_ALIGN_CENTER);
        gtk_widget_add_css_class(show, "flat");
        gtk_widget_set_tooltip_text(show, _("Show in Files"));
        gtk_accessible_update_property(GTK_ACCESSIBLE(show), GTK_ACCESSIBLE_PROPERTY_LABEL, _("Show in Files"), -1);
        gtk_actionable_set_action_name(GTK_ACTIONABLE(show), "downloads.show-in-files");
        gtk_actionable_set_action_target_value(GTK_ACTIONABLE(show), g_variant_new_string(item.path.c_str()));
        gtk_box_append(GTK_BOX(line), show);
    }
    gtk_box_append(GTK_BOX(box), line);
    if (item.state == DownloadList::State::Running) {
        *bar = gtk_progress_bar_new();
        gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(*bar), item.progress);
        gtk_box_append(GTK_BOX(box), *bar);
    }
    return box;
}

} // namespace

DownloadsButton::DownloadsButton(DownloadList& list, GtkWindow* window)
    : m_list(list)
    , m_actions(adopt(g_simple_action_group_new())) {
    addAction<DesktopFiles::open>(m_actions.get(), "open", window);
    addAction<DesktopFiles::showInFiles>(m_actions.get(), "show-in-files", window);
    gtk_widget_insert_action_group(GTK_WIDGET(window), "downloads", G_ACTION_GROUP(m_actions.get()));

    m_button = gtk_menu_button_new();
    // Flat as the header bar's icon buttons (a custom child is no image button).
    gtk_menu_button_set_has_frame(GTK_MENU_BUTTON(m_button), FALSE);
    m_buttonRef = Ref<GtkWidget>(m_button);
    gtk_widget_set_tooltip_text(m_button, _("Downloads"));
    gtk_accessible_update_property(GTK_ACCESSIBLE(m_button), GTK_ACCESSIBLE_PROPERTY_LABEL, _("Downloads"), -1);
    GtkWidget* face = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    m_icon = gtk_image_new_from_icon_name("folder-download-symbolic");
    m_ring = gtk_drawing_area_new();
    gtk_drawing_area_set_content_width(GTK_DRAWING_AREA(m_ring), kRingSize);
    gtk_drawing_area_set_content_height(GTK_DRAWING_AREA(m_ring), kRingSize);
    gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(m_ring), drawRing, this, nullptr);
    gtk_box_append(GTK_BOX(face), m_icon);
    gtk_box_append(GTK_BOX(face), m_ring);
    gtk_menu_button_set_child(GTK_MENU_BUTTON(m_button), face);

    m_popover = gtk_popover_new();
    m_rows = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    gtk_widget_set_size_request(m_rows, 300, -1);
    gtk_widget_add_css_class(m_rows, "orvane-downloads");
    gtk_popover_set_child(GTK_POPOVER(m_popover), m_rows);
    gtk_menu_button_set_popover(GTK_MENU_BUTTON(m_button), m_popover);
    m_popoverClosed = SignalConnection::connect(m_popover, "closed", +[](GtkPopover*, gpointer self) {
        auto* button = static_cast<DownloadsButton*>(self);
        if (!button->m_list.running())
            button->lingerOver();
    }, this);

    gtk_widget_set_visible(m_button, FALSE);
    m_changed = m_list.changed.add([this] { update(); });
    update();
}

DownloadsButton::~DownloadsButton() {
    g_clear_handle_id(&m_linger, g_source_remove);
    gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(m_ring), nullptr, nullptr, nullptr);
}

void DownloadsButton::update() {
    bool running = m_list.running();
    bool any = !m_list.items().empty();
    gtk_widget_set_visible(m_button, any);
    gtk_widget_set_visible(m_icon, !running);
    gtk_widget_set_visible(m_ring, running);
    gtk_widget_queue_draw(m_ring);
    g_clear_handle_id(&m_linger, g_source_remove);
    if (any && !running) {
        m_linger = g_timeout_add_seconds(kLingerSeconds, +[](gpointer self) -> gboolean {
            auto* button = static_cast<DownloadsButton*>(self);
            button->m_linger = 0;
            // An open list stays until it is closed.
            if (!gtk_widget_get_visible(button->m_popover))
                button->lingerOver();
            return G_SOURCE_REMOVE;
        }, this);
    }
    rebuildRows();
}

// Progress alone moves the bars; any other change builds the rows anew (a
// row under the pointer keeps its hover while its neighbours progress).
void DownloadsButton::rebuildRows() {
    const auto& items = m_list.items();
    bool same = items.size() == m_shown.size() && std::equal(items.begin(), items.end(), m_shown.begin(),
        [](const DownloadList::Item& item, const Row& row) { return item.id == row.id && item.state == row.state && item.name == row.name; });
    if (same) {
        for (size_t i = 0; i < items.size(); ++i)
            if (m_shown[i].bar)
                gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(m_shown[i].bar), items[i].progress);
        return;
    }
    while (GtkWidget* child = gtk_widget_get_first_child(m_rows))
        gtk_box_remove(GTK_BOX(m_rows), child);
    m_shown.clear();
    for (const auto& item : items) {
        GtkWidget* bar = nullptr;
        gtk_box_append(GTK_BOX(m_rows), rowFor(item, &bar));
        m_shown.push_back({ item.id, item.state, item.name, bar });
    }
}

void DownloadsButton::lingerOver() {
    gtk_popover_popdown(GTK_POPOVER(m_popover));
    m_list.clearEnded();
}

// A ring in the button's colour: a faint track, and the arc done so far
// from twelve o'clock, clockwise.
void DownloadsButton::drawRing(GtkDrawingArea* area, cairo_t* cr, int width, int height, gpointer self) {
    GdkRGBA color;
    gtk_style_context_get_color(gtk_widget_get_style_context(GTK_WIDGET(area)), &color);
    double radius = (std::min(width, height) - kRingWidth) / 2;
    cairo_set_line_width(cr, kRingWidth);
    cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha * 0.25);
    cairo_arc(cr, width / 2.0, height / 2.0, radius, 0, 2 * std::numbers::pi);
    cairo_stroke(cr);
    double done = static_cast<DownloadsButton*>(self)->m_list.progress();
    double top = -std::numbers::pi / 2;
    cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_arc(cr, width / 2.0, height / 2.0, radius, top, top + 2 * std::numbers::pi * std::max(done, 0.02));
    cairo_stroke(cr);
}

} // namespace orvane
