#include "Token.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane {
namespace {

// Expected values come from an independent big-integer computation of the
// same recurrence, reduced modulo 2^64 at every step.
TEST(TokenTest, KnownValues) {
    EXPECT_EQ(token(""), "45h");
    EXPECT_EQ(token("a"), "3t1g");
    EXPECT_EQ(token("ab"), "3hmau");
    EXPECT_EQ(token("hello"), "2orgj27b");
    // Bytes, not characters: the UTF-8 encoding is hashed.
    EXPECT_EQ(token("Grüße ✉"), "2wwq49ggmcyxt");
}

TEST(TokenTest, LongTextsWrapAt64Bits) {
    // 100 rounds of multiplying by 33 overflow many times over.
    EXPECT_EQ(token(std::string(100, 'x')), "1rh46cgnzfvnp");
    EXPECT_EQ(token("data:image/png;base64,iVBORw0KGgo="), "lw7g1605dtr4");
    // A token of a text that carries a token, as Outlook photo names do.
    EXPECT_EQ(token("owa:" + token("data:image/png;base64,AAAA")), "11nvstsxy8lya");
    // Never more than the 13 base-36 digits of a 64-bit value, lower case.
    for (size_t length : { 1u, 7u, 64u, 1000u }) {
        std::string name = token(std::string(length, '\xff'));
        EXPECT_LE(name.size(), 13u);
        EXPECT_EQ(name.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz"), std::string::npos);
        EXPECT_NE(name.front(), '0');
    }
}

} // namespace
} // namespace orvane
