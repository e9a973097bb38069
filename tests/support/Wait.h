#pragma once

#include <glib-object.h>

#include <chrono>
#include <functional>

namespace orvane::test {

using namespace std::chrono_literals;

// Runs the default main context until the condition holds or the timeout
// passes. Returns whether the condition held. Never sleeps blindly: it wakes
// on every event and at least every 10 ms to look again.
inline bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout = 10s) {
    gint64 deadline = g_get_monotonic_time() + std::chrono::duration_cast<std::chrono::microseconds>(timeout).count();
    guint tick = g_timeout_add(10, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    bool met = false;
    while (!(met = condition()) && g_get_monotonic_time() < deadline)
        g_main_context_iteration(nullptr, TRUE);
    g_source_remove(tick);
    return met;
}

// Waits for one emission of a signal on an instance (any signature whose
// first argument is the instance). True if it came in time.
inline bool waitForSignal(gpointer instance, const char* signal, std::chrono::milliseconds timeout = 10s) {
    bool fired = false;
    // A swapped closure gets the data first, so it fits every signature.
    GClosure* closure = g_cclosure_new_swap(G_CALLBACK(+[](gpointer data) { *static_cast<bool*>(data) = true; }), &fired, nullptr);
    gulong id = g_signal_connect_closure(instance, signal, closure, FALSE);
    bool ok = waitUntil([&] { return fired; }, timeout);
    g_signal_handler_disconnect(instance, id);
    return ok;
}

// Runs pending events without waiting.
inline void drainEvents() {
    while (g_main_context_iteration(nullptr, FALSE)) { }
}

} // namespace orvane::test
