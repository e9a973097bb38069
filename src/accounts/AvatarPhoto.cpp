#include "AvatarPhoto.h"

#include "ImageBytes.h"

#include "Account.h"
#include "Token.h"

#include <cstdint>

namespace orvane::AvatarPhoto {

namespace {

constexpr std::string_view kDataScheme = "data:";

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
    return ImageBytes::decodeBase64(text);
}

} // namespace AvatarPhoto
