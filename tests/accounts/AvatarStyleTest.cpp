// The pure rules of the avatar tile: its letter, its colour and its unread
// text. How the tile draws them is the tile's widget test.
#include "AvatarStyle.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace orvane::AvatarStyle {
namespace {

TEST(AvatarStyle, InitialColourAndUnreadTextOfATile) {
    // The initial: the first character, upper-cased, or "+".
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

    // Seeds give half-saturated colours round the wheel.
    EXPECT_DOUBLE_EQ(hueForSeed(725), 5.0 / 360.0);
    EXPECT_DOUBLE_EQ(hueForSeed(-30), 330.0 / 360.0) << "negative seeds wrap around";
    EXPECT_DOUBLE_EQ(hueForSeed(-360), 0.0);
    EXPECT_LT(hueForSeed(std::numeric_limits<int64_t>::min()), 1.0);
    // The colours drawn for 0, 120 and -120 are checked in tests/app/AvatarViewUITest.

    // The unread text is empty below one and caps at 99+.
    const std::pair<int64_t, const char*> unread[] = {
        { std::numeric_limits<int64_t>::min(), "" }, { 0, "" }, { 1, "1" }, { 99, "99" }, { 100, "99+" },
        { std::numeric_limits<int64_t>::max(), "99+" },
    };
    for (const auto& [count, text] : unread)
        EXPECT_EQ(unreadText(count), text) << count;
}

} // namespace
} // namespace orvane::AvatarStyle
