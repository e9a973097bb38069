#pragma once

#include <jsc/jsc.h>
#include <nlohmann/json.hpp>

#include <optional>

namespace orvane {

// A page script's value as JSON (undefined and failures give nothing). Values
// from pages are untrusted: callers check every field they read.
std::optional<nlohmann::json> jsonFromJSC(JSCValue* value);

} // namespace orvane
