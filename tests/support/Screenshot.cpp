#include "support/Screenshot.h"

#include <algorithm>
#include <cstdlib>

namespace orvane::test {

bool Screenshot::Color::near(const Color& other, int tolerance) const {
    return std::abs(red - other.red) <= tolerance && std::abs(green - other.green) <= tolerance
        && std::abs(blue - other.blue) <= tolerance;
}

std::optional<Screenshot> Screenshot::load(const std::string& path) {
    GdkPixbuf* pixbuf = gdk_pixbuf_new_from_file(path.c_str(), nullptr);
    if (!pixbuf)
        return std::nullopt;
    return Screenshot(adopt(pixbuf));
}

Screenshot::Color Screenshot::pixel(int x, int y) const {
    if (x < 0 || y < 0 || x >= width() || y >= height())
        return {};
    const guint8* pixels = gdk_pixbuf_read_pixels(m_pixbuf.get());
    int stride = gdk_pixbuf_get_rowstride(m_pixbuf.get());
    int channels = gdk_pixbuf_get_n_channels(m_pixbuf.get());
    const guint8* p = pixels + y * stride + x * channels;
    return { p[0], p[1], p[2] };
}

double Screenshot::share(const Rect& rect, const Color& color, int tolerance) const {
    int x0 = std::max(rect.x, 0), y0 = std::max(rect.y, 0);
    int x1 = std::min(rect.x + rect.width, width()), y1 = std::min(rect.y + rect.height, height());
    if (x1 <= x0 || y1 <= y0)
        return 0;
    long matching = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            matching += pixel(x, y).near(color, tolerance);
    return double(matching) / double(long(x1 - x0) * (y1 - y0));
}

} // namespace orvane::test
