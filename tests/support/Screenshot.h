#pragma once

#include "GRef.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

namespace orvane::test {

// A PNG taken of a screen, read pixel by pixel.
class Screenshot {
public:
    struct Color {
        int red = 0, green = 0, blue = 0;
        bool near(const Color& other, int tolerance = 24) const {
            return std::abs(red - other.red) <= tolerance && std::abs(green - other.green) <= tolerance
                && std::abs(blue - other.blue) <= tolerance;
        }
    };
    struct Rect {
        int x = 0, y = 0, width = 0, height = 0;
    };

    static std::optional<Screenshot> load(const std::string& path) {
        GdkPixbuf* pixbuf = gdk_pixbuf_new_from_file(path.c_str(), nullptr);
        return pixbuf ? std::optional(Screenshot(adopt(pixbuf))) : std::nullopt;
    }

    int width() const { return gdk_pixbuf_get_width(m_pixbuf.get()); }
    int height() const { return gdk_pixbuf_get_height(m_pixbuf.get()); }
    // Black outside the picture.
    Color pixel(int x, int y) const {
        if (x < 0 || y < 0 || x >= width() || y >= height())
            return {};
        const guint8* p = gdk_pixbuf_read_pixels(m_pixbuf.get())
            + y * gdk_pixbuf_get_rowstride(m_pixbuf.get()) + x * gdk_pixbuf_get_n_channels(m_pixbuf.get());
        return { p[0], p[1], p[2] };
    }
    // The share (0 to 1) of the rectangle's pixels near the colour.
    double share(const Rect& rect, const Color& color, int tolerance = 24) const {
        int x0 = std::max(rect.x, 0), y0 = std::max(rect.y, 0);
        int x1 = std::min(rect.x + rect.width, width()), y1 = std::min(rect.y + rect.height, height());
        long matching = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                matching += pixel(x, y).near(color, tolerance);
        return x1 <= x0 || y1 <= y0 ? 0 : double(matching) / double(long(x1 - x0) * (y1 - y0));
    }

private:
    explicit Screenshot(Ref<GdkPixbuf> pixbuf) : m_pixbuf(std::move(pixbuf)) {}
    Ref<GdkPixbuf> m_pixbuf;
};

} // namespace orvane::test
