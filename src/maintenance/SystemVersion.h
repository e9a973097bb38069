#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane::SystemVersion {

// The operating system's version as "major.minor", both decimal integers, the
// patch left out: VERSION_ID "12" gives "12.0", "24.04" gives "24.4",
// "3.20.2" gives "3.20". Nothing when the text does not start with a number.
std::optional<std::string> fromVersionID(std::string_view versionID);

// The running system's version from os-release (VERSION_ID), or nothing when
// the distribution does not give one (rolling releases, for instance).
std::optional<std::string> current();

} // namespace orvane::SystemVersion
