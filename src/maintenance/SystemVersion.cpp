#include "SystemVersion.h"

#include "GRef.h"

#include <glib.h>

namespace orvane::SystemVersion {

namespace {

// Reads a run of ASCII digits as a number; nothing when there is no digit or
// the run is too long to be a version component.
std::optional<unsigned long> leadingNumber(std::string_view& text) {
    size_t length = 0;
    while (length < text.size() && g_ascii_isdigit(text[length]))
        ++length;
    if (length == 0 || length > 9)
        return std::nullopt;
    unsigned long value = 0;
    for (size_t i = 0; i < length; ++i)
        value = value * 10 + static_cast<unsigned long>(text[i] - '0');
    text.remove_prefix(length);
    return value;
}

} // namespace

std::optional<std::string> fromVersionID(std::string_view versionID) {
    auto major = leadingNumber(versionID);
    if (!major)
        return std::nullopt;
    unsigned long minor = 0;
    if (!versionID.empty() && versionID.front() == '.') {
        versionID.remove_prefix(1);
        minor = leadingNumber(versionID).value_or(0);
    }
    return std::to_string(*major) + "." + std::to_string(minor);
}

std::optional<std::string> current() {
    // GLib reads /etc/os-release, falling back to /usr/lib/os-release, and
    // undoes the shell quoting.
    GCharPtr versionID(g_get_os_info(G_OS_INFO_KEY_VERSION_ID));
    if (!versionID)
        return std::nullopt;
    return fromVersionID(versionID.get());
}

} // namespace orvane::SystemVersion
