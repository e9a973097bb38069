#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

// Fills a page-script template: every occurrence of each marker in the
// template is replaced by its value. The template is scanned once, so a value
// that happens to contain a marker stays as it is.
std::string fillTemplate(std::string_view scriptTemplate,
    const std::vector<std::pair<std::string_view, std::string>>& values);

} // namespace orvane
