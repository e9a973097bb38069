#include "AvatarPhoto.h"


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

} // namespace AvatarPhoto
