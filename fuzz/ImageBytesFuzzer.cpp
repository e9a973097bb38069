// Photos and pictures handed over by pages: data: addresses and the first
// bytes of images.

#include "AvatarPhoto.h"
#include "FileNames.h"
#include "FuzzCheck.h"
#include "ImageBytes.h"

#include <glib.h>

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

    // Any bytes survive the trip through a base64 data: address.
    auto back = ImageBytes::fromDataURL("data:image/png;base64," + encoded(input));
    FUZZ_CHECK(input.empty() ? !back : back && back->data == input && back->meta == "image/png");
    auto fromURL = ImageBytes::fromDataURL(input);
    FUZZ_CHECK(!fromURL || (input.starts_with("data:") && !fromURL->data.empty()));

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
