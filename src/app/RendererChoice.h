#pragma once

#include <gdk/gdk.h>

namespace orvane::RendererChoice {

// Picks how GTK draws Orvane's windows before the first one is shown. When
// OpenGL is Mesa's software rasterizer (llvmpipe: no GPU, a virtual machine,
// a remote session), GTK's OpenGL renderer spends most of a second of CPU
// compiling shaders at start while the first page loads, and gains nothing
// over drawing with cairo; Orvane then asks for the cairo renderer, for its
// own windows only. A GSK_RENDERER already set by the user is left as it is.
void apply(GdkDisplay* display);

} // namespace orvane::RendererChoice
