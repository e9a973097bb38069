#pragma once

#include <string_view>

namespace orvane::BridgeScripts {

// The text of one of the bridges' own page scripts ("bridges/drop-click.js"),
// from the bridges' resource bundle; empty when there is no such script.
std::string_view text(std::string_view name);

} // namespace orvane::BridgeScripts
