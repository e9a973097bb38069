// The pure rules of the avatar tile: its letter, its colour and its unread
// text. How the tile draws them is the tile's widget test.
#include "AvatarStyle.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace orvane::AvatarStyle {
namespace {

TEST(AvatarStyle, InitialIsTheFirstCharacterUpperCasedOrPlus) {
    const std::pair<std::string, std::string> cases[] = {
        { "New Account", "N" },
        { " \t bob", "B" },                   // only spaces and tabs are trimmed
        { "\nx", "\n" },
        { "ßeta", "SS" },                      // full case mapping
        { "e\u0301clair", "E\u0301" },         // a letter and its mark are one character
        { "\U0001F469\u200D\U0001F469\u200D\U0001F467 home", "\U0001F469\u200D\U0001F469\u200D\U0001F467" },
        { "\U0001F1EB\U0001F1F7 Paris", "\U0001F1EB\U0001F1F7" },
        { "田中", "田" },
        { std::string("\xff" "abc", 4), "\uFFFD" }, // broken UTF-8 is repaired first
        { "", "+" },
        { " \t ", "+" },
        { "  ?unknown", "+" },
    };
    for (const auto& [label, initial] : cases)
        EXPECT_EQ(initialForLabel(label), initial) << label;
}

TEST(AvatarStyle, SeedsGiveHalfSaturatedHuesRoundTheWheel) {
    EXPECT_DOUBLE_EQ(hueForSeed(725), 5.0 / 360.0);
    EXPECT_DOUBLE_EQ(hueForSeed(-30), 330.0 / 360.0) << "negative seeds wrap around";
    EXPECT_DOUBLE_EQ(hueForSeed(-360), 0.0);
    EXPECT_LT(hueForSeed(std::numeric_limits<int64_t>::min()), 1.0);
    // The colours drawn for 0, 120 and -120 are checked in tests/app/AvatarViewUITest.
    EXPECT_EQ(colorForSeed(-60).hue, hueForSeed(-60));
    EXPECT_EQ(colorForSeed(-60).saturation, 0.5);
    EXPECT_EQ(colorForSeed(-60).value, 0.8);
}

TEST(AvatarStyle, UnreadTextIsEmptyBelowOneAndCapsAt99Plus) {
    const std::pair<int64_t, const char*> cases[] = {
        { std::numeric_limits<int64_t>::min(), "" }, { 0, "" }, { 1, "1" }, { 99, "99" }, { 100, "99+" },
        { std::numeric_limits<int64_t>::max(), "99+" },
    };
    for (const auto& [unread, text] : cases)
        EXPECT_EQ(unreadText(unread), text) << unread;
}

} // namespace
} // namespace orvane::AvatarStyle
