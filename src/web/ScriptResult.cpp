#include "ScriptResult.h"

#include "GRef.h"

namespace orvane {

std::optional<nlohmann::json> jsonFromJSC(JSCValue* value) {
    if (!value || jsc_value_is_undefined(value))
        return std::nullopt;
    GCharPtr text(jsc_value_to_json(value, 0));
    if (!text)
        return std::nullopt;
    auto json = nlohmann::json::parse(text.get(), nullptr, /*allow_exceptions*/ false);
    if (json.is_discarded())
        return std::nullopt;
    return json;
}

} // namespace orvane
