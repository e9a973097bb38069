// preferences.ini as read from disk, and what Orvane writes over it.

#include "FuzzCheck.h"
#include "Preferences.h"

#include <cmath>
#include <cstring>

using orvane::Preferences;

namespace {

// Setting one key changes that key and nothing else, the text written always
// reads back: a file Orvane wrote and then could not read would never be
// written again.
void checkSet(std::string_view bytes, const Preferences::Values& before, const std::string& key,
    const Preferences::Value& value) {
    auto updated = Preferences::withValue(bytes, key, value);
    FUZZ_CHECK(updated.has_value());
    if (updated->size() > Preferences::kMaxFileBytes)
        return;
    auto after = Preferences::parse(*updated);
    FUZZ_CHECK(after.has_value());

    if (auto* text = std::get_if<std::string>(&value)) {
        FUZZ_CHECK(after->strings.count(key) && after->strings.at(key) == *text);
    } else {
        FUZZ_CHECK(after->numbers.count(key) && after->numbers.at(key) == std::get<double>(value));
    }
    FUZZ_CHECK(after->strings.size() == before.strings.size() + !before.strings.count(key));
    for (const auto& [name, text] : before.strings) {
        if (name == key)
            continue;
        FUZZ_CHECK(after->strings.count(name));
        // GLib keeps carriage returns that end the text in the last value but
        // drops one right before a line break, so once the file is written out
        // with a line break after every line that value has changed.
        if (text.ends_with('\r'))
            continue;
        FUZZ_CHECK(after->strings.at(name) == text && after->numbers.count(name) == before.numbers.count(name)
            && (!before.numbers.count(name) || after->numbers.at(name) == before.numbers.at(name)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes = orvane::fuzz::text(data, size);
    auto values = Preferences::parse(bytes);
    if (!values)
        return 0;
    for (const auto& [key, number] : values->numbers)
        FUZZ_CHECK(std::isfinite(number));

    // The values Orvane writes: the install id, and a time or a text taken
    // from the input (so that escapes are tried too), by turns.
    checkSet(bytes, *values, "installID", std::string("0F8FAD5B-D9CB-469F-A165-70867728950E"));
    double number = 0;
    if (size >= sizeof number)
        std::memcpy(&number, data, sizeof number);
    if (size % 2 && std::isfinite(number)) {
        checkSet(bytes, *values, "lastPing", number);
        return 0;
    }
    std::string raw(bytes.substr(0, 64));
    // GLib's writer leaves form feeds and vertical tabs as they are, and its
    // reader skips them at the start of a value; Orvane writes neither.
    for (char& c : raw) {
        if (c == '\0' || c == '\f' || c == '\v')
            c = '_';
    }
    char* valid = g_utf8_make_valid(raw.c_str(), -1);
    checkSet(bytes, *values, "note", std::string(valid));
    g_free(valid);
    return 0;
}
