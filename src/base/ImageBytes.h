#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane::ImageBytes {

// The file extension (with its dot) for an image, from a meta text (a data
// URL's head, or a MIME type) and, failing that, from its first bytes:
// ".jpg", ".png", ".gif", ".webp" or ".heic"; ".jpg" when nothing matches.
std::string extension(std::string_view meta, std::string_view data);

// A data URL split into its head (everything before the first ",") and its
// payload decoded as strict standard base64 (any character outside the
// alphabet, misplaced padding or a length that is not a multiple of 4 fails).
// Nothing when the text is no "data:" URL, the decode fails or the data is
// empty.
struct Decoded {
    std::string meta;
    std::string data;
};
std::optional<Decoded> fromDataURL(std::string_view text);

// Strict standard base64, as above.
std::optional<std::string> decodeBase64(std::string_view text);

} // namespace orvane::ImageBytes
