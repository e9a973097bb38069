#include "RendererChoice.h"

#include "GRef.h"

#include <epoxy/gl.h>
#include <gsk/gsk.h>

#include <cstring>

namespace orvane::RendererChoice {

static bool softwareGL(GdkDisplay* display) {
    GErrorPtr error;
    if (!gdk_display_prepare_gl(display, GErrorOut(error)))
        return false; // GTK draws with cairo anyway
    Ref<GdkGLContext> context = adopt(gdk_display_create_gl_context(display, GErrorOut(error)));
    if (!context || !gdk_gl_context_realize(context.get(), GErrorOut(error)))
        return false;
    gdk_gl_context_make_current(context.get());
    const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    bool software = renderer && (strstr(renderer, "llvmpipe") || strstr(renderer, "softpipe"));
    gdk_gl_context_clear_current();
    return software;
}

void apply(GdkDisplay* display) {
    if (!display || g_getenv("GSK_RENDERER"))
        return;
    if (!softwareGL(display))
        return;
    // GTK reads the variable once, when it makes its first renderer: make one
    // now on a surface never shown, then take the variable away again so that
    // the programs Orvane starts (a browser, a file manager) do not inherit it.
    g_setenv("GSK_RENDERER", "cairo", TRUE);
    GdkSurface* surface = gdk_surface_new_toplevel(display);
    Ref<GskRenderer> renderer = adopt(gsk_renderer_new_for_surface(surface));
    if (renderer)
        gsk_renderer_unrealize(renderer.get());
    gdk_surface_destroy(surface);
    g_unsetenv("GSK_RENDERER");
}

} // namespace orvane::RendererChoice
