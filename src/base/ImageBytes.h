#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane::ImageBytes {

// The file extension (with its dot) for an image, from a meta text (a data
// URL's head, or a MIME type) and, failing that, from its first bytes:
// ".jpg", ".png", ".gif", ".webp" or ".heic"; ".jpg" when nothing matches.
std::string extension(std::string_view meta, std::string_view data);

// A data: address decoded by libsoup (base64 when it says ";base64",
// percent-encoded otherwise): its MIME type ("text/plain;charset=US-ASCII"
// when it names none) and its bytes. Nothing when the text is no "data:"
// address, cannot be decoded or holds no bytes.
struct Decoded {
    std::string meta;
    std::string data;
};
std::optional<Decoded> fromDataURL(std::string_view text);

} // namespace orvane::ImageBytes
