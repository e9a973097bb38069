#pragma once

#include <string>
#include <string_view>

namespace orvane {

// A short, stable name for a text: the djb2-xor hash of its UTF-8 bytes
// (h = 5381; h = (h * 33 mod 2^64) XOR byte for each byte) written in base 36
// with 0-9 and a-z, without leading zeros. Used to name avatar files after the
// photo they hold: token("") is "45h", token("a") is "3t1g". Not a secure
// hash: it names files, it proves nothing.
std::string token(std::string_view text);

} // namespace orvane
