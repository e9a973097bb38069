#include "ScriptTemplate.h"

namespace orvane {

std::string fillTemplate(std::string_view scriptTemplate,
    const std::vector<std::pair<std::string_view, std::string>>& values) {
    std::string out;
    out.reserve(scriptTemplate.size());
    size_t i = 0;
    while (i < scriptTemplate.size()) {
        bool replaced = false;
        for (const auto& [marker, value] : values) {
            if (!marker.empty() && scriptTemplate.compare(i, marker.size(), marker) == 0) {
                out += value;
                i += marker.size();
                replaced = true;
                break;
            }
        }
        if (!replaced)
            out += scriptTemplate[i++];
    }
    return out;
}

} // namespace orvane
