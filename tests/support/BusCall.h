#pragma once

#include "GRef.h"

#include <gio/gio.h>

#include <chrono>
#include <string>

namespace orvane::test {

using namespace std::chrono_literals;

// A D-Bus method call that keeps the test's main loop running while it waits
// (servers in the test go on answering). The reply, or null on error or
// timeout. `parameters` is sunk when floating.
GVariantPtr callAndWait(GDBusConnection* bus, const std::string& destination, const std::string& path,
    const std::string& interface, const std::string& method, GVariant* parameters,
    std::chrono::milliseconds timeout = 20s);

} // namespace orvane::test
