#pragma once

#include <string>
#include <string_view>

namespace orvane {

// The page scripts compiled into Orvane. A script is named by its path under
// src/ ("services/gmail-compose.js"); its text is read once per run.
namespace PageScripts {

// The script's text, or an empty view when there is no such script.
std::string_view text(std::string_view name);

// "resource:///app/orvane/Orvane/<name>", used as the source URI when a script
// is evaluated so that errors name the file.
std::string sourceURI(std::string_view name);

} // namespace PageScripts
} // namespace orvane
