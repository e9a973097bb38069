#include "web/AvatarPhoto.h"

#include "accounts/Account.h"
#include "base/Token.h"

#include <cstdint>

namespace orvane::AvatarPhoto {

namespace {

constexpr std::string_view kDataScheme = "data:";

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

std::string identity(const std::string& photo) {
    if (photo.starts_with(kDataScheme))
        return "owa:" + token(photo);
    return photo;
}

std::optional<std::string> fileName(const std::string& accountID, const std::string& identity) {
    auto canonical = canonicalUUID(accountID);
    if (!canonical || *canonical != accountID)
        return std::nullopt;
    return accountID + "-" + token(identity) + ".png";
}

std::optional<std::string> dataURLBytes(std::string_view url) {
    if (!url.starts_with(kDataScheme))
        return std::nullopt;
    size_t comma = url.find(',');
    if (comma == std::string_view::npos)
        return std::nullopt;
    auto bytes = decodeBase64(url.substr(comma + 1));
    if (!bytes || bytes->empty())
        return std::nullopt;
    return bytes;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    size_t padding = 0;
    if (!text.empty() && text.back() == '=')
        padding = text.size() >= 2 && text[text.size() - 2] == '=' ? 2 : 1;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    uint32_t group = 0;
    for (size_t i = 0; i < text.size() - padding; ++i) {
        int value = base64Value(text[i]);
        if (value < 0)
            return std::nullopt;
        group = (group << 6) | static_cast<uint32_t>(value);
        if (i % 4 == 3) {
            bytes.push_back(static_cast<char>(group >> 16));
            bytes.push_back(static_cast<char>(group >> 8));
            bytes.push_back(static_cast<char>(group));
            group = 0;
        }
    }
    // The last group: four letters, or two or three before the padding.
    if (padding == 2) {
        bytes.push_back(static_cast<char>(group >> 4));
    } else if (padding == 1) {
        bytes.push_back(static_cast<char>(group >> 10));
        bytes.push_back(static_cast<char>(group >> 2));
    }
    return bytes;
}

bool isPlainFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos
        && name.find('\0') == std::string_view::npos && name.size() <= 255;
}

} // namespace AvatarPhoto
