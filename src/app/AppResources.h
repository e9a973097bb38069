#pragma once

namespace orvane {

// Registers the app layer's resource bundle (the .ui and .css files under
// src/app, src/services/ui and src/maintenance/ui) once per process; safe to
// call any number of times. Paths are /app/orvane/Orvane/<folder>/<file>.
void ensureUIResources();

} // namespace orvane
