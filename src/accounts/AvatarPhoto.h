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

// The bytes of a data: address: the text after the first comma, decoded as
// strict standard base64. Nothing when there is no comma, the text is not
// valid base64 or it decodes to no bytes.
std::optional<std::string> dataURLBytes(std::string_view url);

// Standard base64 (A-Z a-z 0-9 + /), padded to a multiple of four with "=".
// Any other character, whitespace included, rejects the whole text.
std::optional<std::string> decodeBase64(std::string_view text);

} // namespace AvatarPhoto
} // namespace orvane
