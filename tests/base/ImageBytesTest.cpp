#include "ImageBytes.h"
#include "Token.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane {
namespace {

using namespace std::string_literals;

// That base64 is read strictly, and that a data: address gives its type and
// some bytes or nothing, is fuzz/ImageBytesFuzzer's (its seeds hold the
// refused ones). Here: which bytes, and which extension.
TEST(ImageBytesTest, DataAddressesDecodeAndTheExtensionComesFromTheTypeThenTheSignatureElseJPEG) {
    const std::string png = "\x89PNG\r\n\x1a\n";
    auto decoded = ImageBytes::fromDataURL("data:image/png;base64,iVBORw0KGgo=");
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->meta, "data:image/png;base64");
    EXPECT_EQ(decoded->data, png);
    EXPECT_EQ(ImageBytes::fromDataURL("data:,R0lG")->data, "GIF");

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
