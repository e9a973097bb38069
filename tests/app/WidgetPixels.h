#pragma once

// Renders a realized widget tree to pixels so tests can look at colours.

#include "GRef.h"
#include "support/Wait.h"

#include <gtk/gtk.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane::test {

struct Pixel {
    int red = 0;
    int green = 0;
    int blue = 0;
    int alpha = 0;
    bool near(int r, int g, int b, int tolerance = 4) const {
        return std::abs(red - r) <= tolerance && std::abs(green - g) <= tolerance && std::abs(blue - b) <= tolerance;
    }
    bool near(const GdkRGBA& c, int tolerance = 4) const {
        return near(int(std::lround(c.red * 255)), int(std::lround(c.green * 255)), int(std::lround(c.blue * 255)),
            tolerance);
    }
};

inline std::ostream& operator<<(std::ostream& out, const Pixel& p) {
    return out << "rgba(" << p.red << "," << p.green << "," << p.blue << "," << p.alpha << ")";
}

// A downloaded rendering in the widget's own coordinates (scale 1 unless asked).
class Rendering {
public:
    Rendering() = default;
    Rendering(Ref<GdkTexture> texture, double scale) : m_texture(std::move(texture)), m_scale(scale) {
        m_width = gdk_texture_get_width(m_texture.get());
        m_height = gdk_texture_get_height(m_texture.get());
        m_stride = size_t(m_width) * 4;
        m_bytes.resize(m_stride * size_t(m_height));
        gdk_texture_download(m_texture.get(), m_bytes.data(), m_stride);
    }

    explicit operator bool() const { return bool(m_texture); }
    int width() const { return m_width; }
    int height() const { return m_height; }
    GdkTexture* texture() const { return m_texture.get(); }

    // Colour at a point in widget coordinates (un-premultiplied).
    Pixel at(double x, double y) const {
        int px = int(std::floor(x * m_scale));
        int py = int(std::floor(y * m_scale));
        if (px < 0 || py < 0 || px >= m_width || py >= m_height)
            return {};
        const uint8_t* p = m_bytes.data() + size_t(py) * m_stride + size_t(px) * 4;
        // GDK_MEMORY_DEFAULT: B G R A premultiplied on little-endian.
        int a = p[3];
        auto unpremultiply = [a](int v) { return a ? std::min(255, (v * 255 + a / 2) / a) : 0; };
        return { unpremultiply(p[2]), unpremultiply(p[1]), unpremultiply(p[0]), a };
    }

    bool saveTo(const std::string& path) const { return gdk_texture_save_to_png(m_texture.get(), path.c_str()); }

private:
    Ref<GdkTexture> m_texture;
    double m_scale = 1;
    int m_width = 0;
    int m_height = 0;
    size_t m_stride = 0;
    std::vector<uint8_t> m_bytes;
};

// Renders what `widget` draws, including what it draws outside its own box
// (overflow), with the renderer of its window. Waits for a pending layout
// first: a widget whose size is being recomputed has nothing to draw yet.
inline Rendering renderWidget(GtkWidget* widget, double scale = 1.0) {
    GtkNative* native = gtk_widget_get_native(widget);
    if (!native || !gtk_widget_get_mapped(widget))
        return {};
    GskRenderNode* node = nullptr;
    int width = 0;
    int height = 0;
    waitUntil([&] {
        width = gtk_widget_get_width(widget);
        height = gtk_widget_get_height(widget);
        auto paintable = adopt(gtk_widget_paintable_new(widget));
        GtkSnapshot* snapshot = gtk_snapshot_new();
        gtk_snapshot_scale(snapshot, float(scale), float(scale));
        gdk_paintable_snapshot(paintable.get(), snapshot, width, height);
        node = gtk_snapshot_free_to_node(snapshot);
        return node != nullptr;
    }, 5s);
    if (!node)
        return {};
    graphene_rect_t viewport = GRAPHENE_RECT_INIT(0, 0, float(width * scale), float(height * scale));
    auto texture = adopt(gsk_renderer_render_texture(gtk_native_get_renderer(native), node, &viewport));
    gsk_render_node_unref(node);
    return Rendering(std::move(texture), scale);
}

// A plain undecorated window around `child`, shown and laid out.
inline GtkWindow* showInWindow(GtkWidget* child, int width = -1, int height = -1) {
    GtkWindow* window = GTK_WINDOW(gtk_window_new());
    gtk_window_set_decorated(window, FALSE);
    gtk_window_set_default_size(window, width, height);
    gtk_window_set_child(window, child);
    gtk_window_present(window);
    waitUntil([&] { return gtk_widget_get_mapped(child) && gtk_widget_get_width(child) > 0; });
    return window;
}

// Where `widget`'s origin lies inside `ancestor`.
inline graphene_point_t originIn(GtkWidget* widget, GtkWidget* ancestor) {
    graphene_point_t in = GRAPHENE_POINT_INIT(0, 0);
    graphene_point_t out = GRAPHENE_POINT_INIT(-1, -1);
    if (!gtk_widget_compute_point(widget, ancestor, &in, &out))
        return GRAPHENE_POINT_INIT(-1, -1);
    return out;
}

} // namespace orvane::test
