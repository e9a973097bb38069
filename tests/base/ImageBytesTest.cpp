#include "ImageBytes.h"

#include <gtest/gtest.h>

#include <string>

namespace orvane {
namespace {

using namespace std::string_literals;

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values)
        out.push_back(static_cast<char>(v));
    return out;
}

TEST(ImageBytesTest, ExtensionFromMetaThenSignature) {
    using ImageBytes::extension;
    const std::string png = bytes({ 0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a });
    // The meta text wins, in table order, in any letter case.
    EXPECT_EQ(extension("data:image/JPEG;base64", png), ".jpg");
    EXPECT_EQ(extension("image/jpg", png), ".jpg");
    EXPECT_EQ(extension("data:image/png;base64", ""), ".png");
    EXPECT_EQ(extension("image/gif", png), ".gif");
    EXPECT_EQ(extension("image/webp", png), ".webp");
    EXPECT_EQ(extension("image/HEIC", png), ".heic");
    EXPECT_EQ(extension("image/png+jpeg", ""), ".jpg"); // rule 1 before rule 3
    // A generic meta falls to the bytes.
    EXPECT_EQ(extension("data:application/octet-stream;base64", png), ".png");
    EXPECT_EQ(extension("", bytes({ 0xff, 0xd8, 0xff, 0xe0 })), ".jpg");
    EXPECT_EQ(extension("", bytes({ 0x89, 'P', 'N', 'G', 0, 0, 0 })), ".jpg"); // PNG needs 8 bytes
    EXPECT_EQ(extension("", "GIF8"), ".gif");
    EXPECT_EQ(extension("", "GIF"), ".jpg"); // exactly 3 bytes: the GIF test needs 4
    EXPECT_EQ(extension("", "RIFF\x10\0\0\0WEBPVP8 "s), ".webp");
    EXPECT_EQ(extension("", "RIFF\x10\0\0\0WEBP"s), ".webp");
    EXPECT_EQ(extension("", "RIFF\x10\0\0\0WEB"s), ".jpg");
    EXPECT_EQ(extension("", "ab"), ".jpg");
    EXPECT_EQ(extension("image/svg+xml", "<svg xmlns='http://www.w3.org/2000/svg'/>"), ".jpg");
    EXPECT_EQ(extension("", "ftypheic...."), ".jpg"); // no HEIC sniffing
}

TEST(ImageBytesTest, DataURLsDecodeStrictly) {
    auto decoded = ImageBytes::fromDataURL("data:image/png;base64,iVBORw0KGgo=");
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->meta, "data:image/png;base64");
    EXPECT_EQ(decoded->data, bytes({ 0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a }));
    EXPECT_EQ(ImageBytes::decodeBase64("R0lG").value_or("?"), "GIF");
    EXPECT_EQ(ImageBytes::decodeBase64("YQ==").value_or("?"), "a");
    EXPECT_EQ(ImageBytes::decodeBase64("YWI=").value_or("?"), "ab");
    EXPECT_EQ(ImageBytes::decodeBase64("").value_or("?"), "");
    for (const char* bad : { "YQ", "Y===", "YQ=a", "YQ==YQ==", "YW I=", "YW\nI", "YW*=", "=AAA" })
        EXPECT_FALSE(ImageBytes::decodeBase64(bad)) << bad;

    EXPECT_FALSE(ImageBytes::fromDataURL("data:image/png;base64,"));   // empty data
    EXPECT_FALSE(ImageBytes::fromDataURL("data:image/png;base64"));    // no comma
    EXPECT_FALSE(ImageBytes::fromDataURL("blob:http://x/1,R0lG"));     // not a data URL
    EXPECT_FALSE(ImageBytes::fromDataURL("data:image/png;base64,R0l!")); // invalid character
    EXPECT_EQ(ImageBytes::fromDataURL("data:,R0lG")->data, "GIF");
}

} // namespace
} // namespace orvane
