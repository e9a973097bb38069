// The update feed, as a server sends it.

#include "Appcast.h"
#include "FuzzCheck.h"

#include <algorithm>

using orvane::Appcast;
using orvane::fuzz::isValidUTF8;

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

void checkVersions(std::string_view a, std::string_view b) {
    FUZZ_CHECK(Appcast::compareVersions(a, a) == 0);
    FUZZ_CHECK(sign(Appcast::compareVersions(a, b)) == -sign(Appcast::compareVersions(b, a)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes = orvane::fuzz::text(data, size);

    // The version order, on the input cut in two (a feed's versions are
    // at most kMaxVersionBytes).
    checkVersions(bytes.substr(0, std::min(size / 2, Appcast::kMaxVersionBytes)),
        bytes.substr(size / 2, Appcast::kMaxVersionBytes));

    std::string text = Appcast::plainText(bytes, 100);
    FUZZ_CHECK(text.size() <= 100 && isValidUTF8(text));

    auto appcast = Appcast::parse(bytes);
    if (!appcast)
        return 0;
    for (const auto& item : appcast->items()) {
        FUZZ_CHECK(!item.version.empty() && item.version.size() <= Appcast::kMaxVersionBytes);
        FUZZ_CHECK(!item.displayVersion.empty() && item.displayVersion.size() <= Appcast::kMaxVersionBytes);
        FUZZ_CHECK(item.minimumSystemVersion.size() <= Appcast::kMaxVersionBytes);
        FUZZ_CHECK(Appcast::isWebAddress(item.downloadURL));
        FUZZ_CHECK(item.releaseNotesURL.empty() || Appcast::isWebAddress(item.releaseNotesURL));
        FUZZ_CHECK(isValidUTF8(item.title) && item.title.find('\n') == std::string::npos);
        std::string notes = Appcast::plainText(item.descriptionHTML);
        FUZZ_CHECK(notes.size() <= 4000 && isValidUTF8(notes));
    }
    if (const auto* newest = appcast->newest(std::nullopt)) {
        for (const auto& item : appcast->items())
            FUZZ_CHECK(Appcast::compareVersions(newest->version, item.version) >= 0);
    } else {
        FUZZ_CHECK(appcast->items().empty());
    }
    if (appcast->items().size() >= 2)
        checkVersions(appcast->items()[0].version, appcast->items()[1].version);
    return 0;
}
