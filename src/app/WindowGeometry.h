#pragma once

#include "SessionPreferences.h"

#include <gtk/gtk.h>

namespace orvane::WindowGeometry {

// The main window opens at the size, and maximised or not, as it was last
// closed or when Orvane last quit.

// Before the window is first shown.
void restore(GtkWindow* window, const SessionPreferences& preferences, int minimumWidth, int minimumHeight);
// Keeps the size each time the window is closed (hidden or destroyed).
void keepOnClose(GtkWindow* window, SessionPreferences& preferences);
void keep(GtkWindow* window, SessionPreferences& preferences);

} // namespace orvane::WindowGeometry
