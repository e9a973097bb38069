#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// How an account photo is named and read: the rules shared by the refresh and
// its tests. Pure functions.
namespace AvatarPhoto {

// The identity of the photo a page reported: the address itself, or for an
// inline data: address (Outlook's) "owa:" + token(address).
std::string identity(const std::string& photo);

// "<ACCOUNT-UUID>-<token(identity)>.png" inside the avatars folder, whatever
// the image format. Nothing unless the account id is a canonical UUID, so a
// hand-edited accounts file can never make this name a path.
std::optional<std::string> fileName(const std::string& accountID, const std::string& identity);

} // namespace AvatarPhoto
} // namespace orvane
