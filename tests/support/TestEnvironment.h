#pragma once

#include <string>

namespace orvane::test {

// Pins the environment every Orvane test runs in: temporary HOME and XDG
// folders, in-memory GSettings, the C locale, no input method, no
// compositing. Called by the test mains before anything else runs.
void pinEnvironment();

// Points XDG_DATA_HOME, XDG_CACHE_HOME and XDG_CONFIG_HOME at fresh, empty
// folders and returns the new data home. Use at the start of a test that
// needs a clean slate.
std::string freshXDGFolders();

// A new empty folder under the temporary root.
std::string makeTempFolder(const std::string& prefix);

// Points every service's home page at a closed loopback port (through
// ORVANE_SERVICE_OVERRIDES), so the pages a test's views create go nowhere.
void sendServicesNowhere();

} // namespace orvane::test
