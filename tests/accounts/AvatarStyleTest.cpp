// Pure rules of the avatar tile (they live in the app layer, so they are
// built with the UI tests).
#include "AvatarStyle.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using namespace orvane;
using namespace orvane::AvatarStyle;

TEST(AvatarStyle, InitialIsFirstGraphemeClusterUpperCased) {
    EXPECT_EQ(initialForLabel("New Account"), "N");
    EXPECT_EQ(initialForLabel("  alice"), "A");
    EXPECT_EQ(initialForLabel("\t bob \t"), "B");
    EXPECT_EQ(initialForLabel("zoë@example.com"), "Z");
    // Full case mapping: one letter may become two.
    EXPECT_EQ(initialForLabel("ßeta"), "SS");
    EXPECT_EQ(initialForLabel("ǆungla"), "Ǆ");
    // A base letter with a combining mark is one character.
    EXPECT_EQ(initialForLabel("e\u0301clair"), "E\u0301");
    // Emoji sequences are one character: a family joined by ZWJs, a flag, a
    // skin-toned hand.
    EXPECT_EQ(initialForLabel("\U0001F469\u200D\U0001F469\u200D\U0001F467 home"),
        "\U0001F469\u200D\U0001F469\u200D\U0001F467");
    EXPECT_EQ(initialForLabel("\U0001F1EB\U0001F1F7 Paris"), "\U0001F1EB\U0001F1F7");
    EXPECT_EQ(initialForLabel("\U0001F44B\U0001F3FD hi"), "\U0001F44B\U0001F3FD");
    // CJK and digits stay as they are.
    EXPECT_EQ(initialForLabel("田中"), "田");
    EXPECT_EQ(initialForLabel("42 things"), "4");
}

TEST(AvatarStyle, InitialFallsBackToPlus) {
    EXPECT_EQ(initialForLabel(""), "+");
    EXPECT_EQ(initialForLabel("   "), "+");
    EXPECT_EQ(initialForLabel(" \t "), "+");
    EXPECT_EQ(initialForLabel("?"), "+");
    EXPECT_EQ(initialForLabel("?unknown"), "+");
    EXPECT_EQ(initialForLabel("  ?x"), "+");
    // Only spaces and tabs are trimmed: a line break is a character.
    EXPECT_EQ(initialForLabel("\nx"), "\n");
    // Broken UTF-8 is repaired, never read past.
    EXPECT_EQ(initialForLabel(std::string("\xff" "abc", 4)), "\uFFFD");
    EXPECT_EQ(initialForLabel(std::string("a\xc3", 2)), "A");
    // A huge cluster (a letter with thousands of marks) stays bounded.
    std::string zalgo = "x";
    for (int i = 0; i < 5000; ++i)
        zalgo += "\u0301";
    EXPECT_LT(initialForLabel(zalgo).size(), 200u);
}

TEST(AvatarStyle, HueFollowsTruncatingRemainderAndWrapsNegatives) {
    EXPECT_DOUBLE_EQ(hueForSeed(0), 0.0);
    EXPECT_DOUBLE_EQ(hueForSeed(180), 0.5);
    EXPECT_DOUBLE_EQ(hueForSeed(360), 0.0);
    EXPECT_DOUBLE_EQ(hueForSeed(359), 359.0 / 360.0);
    EXPECT_DOUBLE_EQ(hueForSeed(725), 5.0 / 360.0);
    EXPECT_DOUBLE_EQ(hueForSeed(-30), 330.0 / 360.0);
    EXPECT_DOUBLE_EQ(hueForSeed(-360), 0.0);
    double extreme = hueForSeed(std::numeric_limits<int64_t>::min());
    EXPECT_GE(extreme, 0.0);
    EXPECT_LT(extreme, 1.0);
}

TEST(AvatarStyle, SeedColoursAreHalfSaturatedAtBrightnessPointEight) {
    auto expectRGB = [](RGB got, double r, double g, double b) {
        EXPECT_NEAR(got.red, r, 1e-9);
        EXPECT_NEAR(got.green, g, 1e-9);
        EXPECT_NEAR(got.blue, b, 1e-9);
    };
    expectRGB(colorForSeed(0), 0.8, 0.4, 0.4);
    expectRGB(colorForSeed(120), 0.4, 0.8, 0.4);
    expectRGB(colorForSeed(240), 0.4, 0.4, 0.8);
    expectRGB(colorForSeed(60), 0.8, 0.8, 0.4);
    expectRGB(colorForSeed(300), 0.8, 0.4, 0.8);
    expectRGB(colorForSeed(-60), 0.8, 0.4, 0.8);
    expectRGB(fromHSB(0.5, 1.0, 1.0), 0.0, 1.0, 1.0);
    expectRGB(fromHSB(0.25, 0.0, 0.3), 0.3, 0.3, 0.3);
}

TEST(AvatarStyle, UnreadText) {
    EXPECT_EQ(unreadText(0), "");
    EXPECT_EQ(unreadText(-3), "");
    EXPECT_EQ(unreadText(std::numeric_limits<int64_t>::min()), "");
    EXPECT_EQ(unreadText(1), "1");
    EXPECT_EQ(unreadText(7), "7");
    EXPECT_EQ(unreadText(99), "99");
    EXPECT_EQ(unreadText(100), "99+");
    EXPECT_EQ(unreadText(12345), "99+");
    EXPECT_EQ(unreadText(std::numeric_limits<int64_t>::max()), "99+");
}
