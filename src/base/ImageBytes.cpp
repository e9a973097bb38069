#include "ImageBytes.h"

#include "GRef.h"

#include <glib.h>

#include <array>

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

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
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

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        bool last = i + 4 == text.size();
        std::array<int, 4> v {};
        int padding = 0;
        for (int k = 0; k < 4; ++k) {
            char c = text[i + k];
            if (c == '=' && last && k >= 2) {
                ++padding;
                v[k] = 0;
                continue;
            }
            if (padding > 0)
                return std::nullopt; // data after padding
            v[k] = base64Value(c);
            if (v[k] < 0)
                return std::nullopt;
        }
        unsigned triple = (unsigned(v[0]) << 18) | (unsigned(v[1]) << 12) | (unsigned(v[2]) << 6) | unsigned(v[3]);
        out.push_back(static_cast<char>((triple >> 16) & 0xff));
        if (padding < 2)
            out.push_back(static_cast<char>((triple >> 8) & 0xff));
        if (padding < 1)
            out.push_back(static_cast<char>(triple & 0xff));
    }
    return out;
}

std::optional<Decoded> fromDataURL(std::string_view text) {
    if (text.substr(0, 5) != "data:")
        return std::nullopt;
    size_t comma = text.find(',');
    if (comma == std::string_view::npos)
        return std::nullopt;
    auto data = decodeBase64(text.substr(comma + 1));
    if (!data || data->empty())
        return std::nullopt;
    return Decoded { std::string(text.substr(0, comma)), std::move(*data) };
}

} // namespace orvane::ImageBytes
