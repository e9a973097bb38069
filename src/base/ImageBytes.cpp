#include "ImageBytes.h"

#include "GRef.h"

#include <glib.h>
#include <libsoup/soup.h>


namespace orvane::ImageBytes {

namespace {

bool startsWith(std::string_view data, std::initializer_list<unsigned char> bytes, size_t at = 0) {
    if (data.size() < at + bytes.size())
        return false;
    size_t i = at;
    for (unsigned char byte : bytes) {
        if (static_cast<unsigned char>(data[i++]) != byte)
            return false;
    }
    return true;
}

} // namespace

std::string extension(std::string_view meta, std::string_view data) {
    GCharPtr lowered(g_ascii_strdown(meta.data(), static_cast<gssize>(meta.size())));
    std::string_view lower = lowered ? lowered.get() : "";
    auto contains = [&](std::string_view word) { return lower.find(word) != std::string_view::npos; };
    if (contains("jpeg") || contains("jpg"))
        return ".jpg";
    if (contains("png"))
        return ".png";
    if (contains("gif"))
        return ".gif";
    if (contains("webp"))
        return ".webp";
    if (contains("heic"))
        return ".heic";

    if (data.size() < 3)
        return ".jpg";
    if (startsWith(data, { 0xff, 0xd8, 0xff }))
        return ".jpg";
    if (data.size() >= 8 && startsWith(data, { 0x89, 'P', 'N', 'G' }))
        return ".png";
    if (data.size() >= 4 && startsWith(data, { 'G', 'I', 'F' }))
        return ".gif";
    if (data.size() >= 12 && startsWith(data, { 'W', 'E', 'B', 'P' }, 8))
        return ".webp";
    return ".jpg";
}

std::optional<Decoded> fromDataURL(std::string_view text) {
    if (text.substr(0, 5) != "data:")
        return std::nullopt;
    std::string address(text);
    char* rawType = nullptr;
    GBytesPtr bytes(soup_uri_decode_data_uri(address.c_str(), &rawType));
    GCharPtr type(rawType);
    gsize size = 0;
    const void* data = bytes ? g_bytes_get_data(bytes.get(), &size) : nullptr;
    if (!data || !size)
        return std::nullopt;
    return Decoded { type ? type.get() : "", std::string(static_cast<const char*>(data), size) };
}

} // namespace orvane::ImageBytes
