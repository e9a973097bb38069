#pragma once

#include "GRef.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <optional>
#include <string>

namespace orvane::test {

// A PNG taken of a screen, read pixel by pixel.
class Screenshot {
public:
    struct Color {
        int red = 0;
        int green = 0;
        int blue = 0;
        bool near(const Color& other, int tolerance = 24) const;
    };
    struct Rect {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    static std::optional<Screenshot> load(const std::string& path);

    int width() const { return gdk_pixbuf_get_width(m_pixbuf.get()); }
    int height() const { return gdk_pixbuf_get_height(m_pixbuf.get()); }
    // Black outside the picture.
    Color pixel(int x, int y) const;
    // The share (0 to 1) of the rectangle's pixels near the colour.
    double share(const Rect& rect, const Color& color, int tolerance = 24) const;

private:
    explicit Screenshot(Ref<GdkPixbuf> pixbuf) : m_pixbuf(std::move(pixbuf)) {}
    Ref<GdkPixbuf> m_pixbuf;
};

} // namespace orvane::test
