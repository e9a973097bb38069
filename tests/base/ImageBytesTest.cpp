#include "ImageBytes.h"
#include "Token.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane {
namespace {

using namespace std::string_literals;

TEST(ImageBytesTest, ExtensionFromTheTypeThenTheSignatureElseJPEG) {
    const std::string png = "\x89PNG\r\n\x1a\n";
    const std::tuple<const char*, std::string, const char*> cases[] = {
        { "data:image/JPEG;base64", png, ".jpg" }, // the type wins, in any letter case
        { "image/gif", png, ".gif" },
        { "image/webp", png, ".webp" },
        { "image/HEIC", png, ".heic" },
        { "image/png+jpeg", "", ".jpg" },          // in table order
        { "data:application/octet-stream;base64", png, ".png" },
        { "", png.substr(0, 7), ".jpg" },          // a PNG signature has 8 bytes
        { "", "GIF8", ".gif" },
        { "", "RIFF\x10\0\0\0WEBP"s, ".webp" },
        { "image/svg+xml", "<svg/>", ".jpg" },
        { "", "ftypheic....", ".jpg" },            // no HEIC sniffing
    };
    for (const auto& [meta, bytes, extension] : cases)
        EXPECT_EQ(ImageBytes::extension(meta, bytes), extension) << meta << " " << bytes;
}

TEST(ImageBytesTest, DataAddressesDecodeStrictly) {
    auto decoded = ImageBytes::fromDataURL("data:image/png;base64,iVBORw0KGgo=");
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->meta, "data:image/png;base64");
    EXPECT_EQ(decoded->data, "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(ImageBytes::fromDataURL("data:,R0lG")->data, "GIF");
    EXPECT_EQ(ImageBytes::decodeBase64("YQ==").value_or("?"), "a");
    EXPECT_EQ(ImageBytes::decodeBase64("").value_or("?"), "");
    for (const char* bad : { "YQ", "YQ=a", "YQ==YQ==", "YW I=", "=AAA" })
        EXPECT_FALSE(ImageBytes::decodeBase64(bad)) << bad;
    for (const char* bad : { "data:image/png;base64,", "data:image/png;base64", "blob:http://x/1,R0lG", "data:image/png;base64,R0l!" })
        EXPECT_FALSE(ImageBytes::fromDataURL(bad)) << bad;
}

// Photo file names are tokens of their addresses. The values come from an
// independent big-integer computation of the same recurrence, modulo 2^64.
TEST(TokenTest, KnownValuesOfBytesWrappingAt64Bits) {
    EXPECT_EQ(token(""), "45h");
    EXPECT_EQ(token("hello"), "2orgj27b");
    EXPECT_EQ(token("Grüße ✉"), "2wwq49ggmcyxt");
    EXPECT_EQ(token(std::string(100, 'x')), "1rh46cgnzfvnp");
    EXPECT_EQ(token("owa:" + token("data:image/png;base64,AAAA")), "11nvstsxy8lya");
}

} // namespace
} // namespace orvane
