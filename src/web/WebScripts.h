#pragma once

#include <string_view>

namespace orvane::WebScripts {

// The text of one of the web layer's own page scripts ("bridges/drop-click.js"),
// from the web layer's resource bundle; empty when there is no such script.
std::string_view text(std::string_view name);

} // namespace orvane::WebScripts
