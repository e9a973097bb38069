// Download names from pages and servers. The first byte picks the byte
// bound, the second the copy number; the rest is the name.

#include "FileNames.h"
#include "FuzzCheck.h"

namespace FileNames = orvane::FileNames;
using orvane::fuzz::isValidUTF8;

namespace {

bool isRemoved(gunichar c) {
    return c < 0x20 || c == 0x7f || (c >= 0x80 && c <= 0x9f) || (c >= 0x202a && c <= 0x202e)
        || (c >= 0x2066 && c <= 0x2069) || c == 0x200e || c == 0x200f || c == 0x061c;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    size_t maxBytes = size_t(data[0]) % FileNames::kMaxNameBytes + 1;
    unsigned n = data[1] % 2 ? data[1] : 1000000u * data[1] + 1;
    std::string_view name = orvane::fuzz::text(data + 2, size - 2);

    const std::string fallback = "_";
    std::string clean = FileNames::sanitized(name, fallback, maxBytes);
    FUZZ_CHECK(FileNames::isPlainName(clean) && clean.size() <= maxBytes && isValidUTF8(clean));
    FUZZ_CHECK(clean.find('\\') == std::string::npos);
    for (const char* p = clean.c_str(); *p; p = g_utf8_next_char(p))
        FUZZ_CHECK(!isRemoved(g_utf8_get_char(p)));
    FUZZ_CHECK(clean.front() != '.' && clean.front() != ' ' && clean.back() != '.' && clean.back() != ' ');
    FUZZ_CHECK(FileNames::sanitized(clean, fallback, maxBytes) == clean);

    // The n-th name to try: the number and extension whole, within the bound
    // whenever they fit in it.
    auto parts = FileNames::split(clean);
    FUZZ_CHECK(parts.extension.empty() ? parts.base == clean : parts.base + "." + parts.extension == clean);
    std::string numbered = FileNames::numbered(parts, n, maxBytes);
    std::string tail = " " + std::to_string(n) + (parts.extension.size() <= 32 && !parts.extension.empty()
        ? "." + parts.extension : "");
    FUZZ_CHECK(numbered.ends_with(tail) && isValidUTF8(numbered) && FileNames::isPlainName(numbered));
    if (tail.size() <= maxBytes)
        FUZZ_CHECK(numbered.size() <= maxBytes);

    std::string cut = FileNames::truncatedUTF8(name, maxBytes);
    FUZZ_CHECK(cut.size() <= maxBytes && name.starts_with(cut));
    if (isValidUTF8(name))
        FUZZ_CHECK(isValidUTF8(cut));
    return 0;
}
