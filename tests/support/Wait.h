#pragma once

#include <glib-object.h>

#include <chrono>
#include <functional>

namespace orvane::test {

using namespace std::chrono_literals;

// Runs the default main context until the condition holds or the timeout
// passes. Returns whether the condition held. Never sleeps blindly: it wakes
// on every event and at least every 10 ms to look again.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout = 10s);

// Waits for one emission of a signal on an instance (any signature whose
// first argument is the instance). True if it came in time.
bool waitForSignal(gpointer instance, const char* signal, std::chrono::milliseconds timeout = 10s);

// Runs pending events without waiting.
void drainEvents();

} // namespace orvane::test
