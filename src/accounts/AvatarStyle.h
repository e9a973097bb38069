#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvane::AvatarStyle {

// The pure rules behind an avatar tile, kept apart from the drawing so they
// can be tested without a display.

struct RGB {
    double red = 0;
    double green = 0;
    double blue = 0;
    bool operator==(const RGB&) const = default;
};

// Badge colours of the two service families (sRGB, opaque).
inline constexpr RGB kMailColor { 0.92, 0.26, 0.21 };
inline constexpr RGB kCalendarColor { 0.26, 0.52, 0.96 };

// Hue in [0, 1) of an account colour: the seed's truncating remainder by 360,
// over 360. A negative remainder (only a hand-edited file has negative seeds)
// wraps around the colour wheel, so -30 gives the hue of 330.
double hueForSeed(int64_t colorSeed);

// A colour as hue, saturation and value (all 0 to 1); the drawing turns it
// into sRGB with gtk_hsv_to_rgb.
struct HSV {
    double hue = 0;
    double saturation = 0;
    double value = 0;
};

// The disc colour of an account without a photo: its hue at saturation 0.5
// and value 0.8.
HSV colorForSeed(int64_t colorSeed);

// The letter drawn for a label: the first user-perceived character after
// trimming spaces and tabs, upper-cased with the full Unicode mapping; "+"
// when there is none or it is "?". Invalid UTF-8 is repaired first.
std::string initialForLabel(std::string_view label);

// The unread capsule's text: empty below 1, the number below 100, "99+" above.
std::string unreadText(int64_t unread);

} // namespace orvane::AvatarStyle
