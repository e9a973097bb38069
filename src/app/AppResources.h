#pragma once

#include <gdk/gdk.h>

namespace orvane {

// Registers the app layer's resource bundle (the .ui files and the
// stylesheet under src/app) once per process; safe to call any number of
// times. Paths are /app/orvane/Orvane/app/<file>.
void ensureUIResources();

// Loads Orvane's one stylesheet (app/style.css) for the display, once.
void ensureStyle(GdkDisplay* display);

} // namespace orvane
