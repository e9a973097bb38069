// Photos and pictures handed over by pages: base64, data: addresses and the
// first bytes of images.

#include "AvatarPhoto.h"
#include "FileNames.h"
#include "FuzzCheck.h"
#include "ImageBytes.h"

namespace ImageBytes = orvane::ImageBytes;
namespace AvatarPhoto = orvane::AvatarPhoto;

namespace {

std::string encoded(std::string_view bytes) {
    char* text = g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
    std::string result(text);
    g_free(text);
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input = orvane::fuzz::text(data, size);

    // Strict base64 takes only canonical lengths and alphabet, and what it
    // takes decodes to what GLib's own decoder gives.
    auto decoded = ImageBytes::decodeBase64(input);
    if (decoded) {
        FUZZ_CHECK(size % 4 == 0);
        size_t padding = input.ends_with("==") ? 2 : input.ends_with("=") ? 1 : 0;
        FUZZ_CHECK(decoded->size() == size / 4 * 3 - padding);
        FUZZ_CHECK(encoded(*decoded).size() == size);
        std::string copy(input);
        gsize length = 0;
        guchar* glib = g_base64_decode(copy.c_str(), &length);
        FUZZ_CHECK(std::string_view(reinterpret_cast<char*>(glib), length) == *decoded);
        g_free(glib);
    }
    // Any bytes survive the trip through base64.
    FUZZ_CHECK(ImageBytes::decodeBase64(encoded(input)) == std::string(input));

    auto fromURL = ImageBytes::fromDataURL(input);
    if (fromURL) {
        FUZZ_CHECK(input.starts_with("data:") && !fromURL->data.empty());
        FUZZ_CHECK(fromURL->meta.find(',') == std::string::npos && input.starts_with(fromURL->meta + ","));
    }

    std::string extension = ImageBytes::extension(input.substr(0, size / 2), input.substr(size / 2));
    FUZZ_CHECK(extension == ".jpg" || extension == ".png" || extension == ".gif" || extension == ".webp"
        || extension == ".heic");

    // A photo's file name is one plain name, whatever the page reported.
    std::string identity = AvatarPhoto::identity(std::string(input));
    FUZZ_CHECK(input.starts_with("data:") ? identity.starts_with("owa:") : identity == input);
    const std::string account = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    auto name = AvatarPhoto::fileName(account, identity);
    FUZZ_CHECK(name && orvane::FileNames::isPlainName(*name) && name->starts_with(account + "-")
        && name->ends_with(".png"));
    auto named = AvatarPhoto::fileName(std::string(input.substr(0, 36)), identity);
    FUZZ_CHECK(!named || orvane::FileNames::isPlainName(*named));
    return 0;
}
