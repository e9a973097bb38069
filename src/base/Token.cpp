#include "Token.h"

#include <algorithm>
#include <cstdint>

namespace orvane {

std::string token(std::string_view text) {
    uint64_t h = 5381;
    for (unsigned char byte : text)
        h = (h * 33) ^ byte; // unsigned arithmetic wraps modulo 2^64
    constexpr const char* kDigits = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string digits;
    do {
        digits.push_back(kDigits[h % 36]);
        h /= 36;
    } while (h);
    std::reverse(digits.begin(), digits.end());
    return digits;
}

} // namespace orvane
