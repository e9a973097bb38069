#pragma once

#include <glib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// A property every input must keep. A broken one aborts, which both
// libFuzzer and the replay program report as a failure, with the input.
#define FUZZ_CHECK(condition)                                                                           \
    do {                                                                                                 \
        if (!(condition)) {                                                                              \
            std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition);       \
            std::abort();                                                                                \
        }                                                                                                \
    } while (0)

namespace orvane::fuzz {

inline std::string_view text(const uint8_t* data, size_t size) {
    return { reinterpret_cast<const char*>(data), size };
}

inline bool isValidUTF8(std::string_view text) {
    return g_utf8_validate(text.data(), gssize(text.size()), nullptr);
}

} // namespace orvane::fuzz
