#pragma once

namespace orvane {

// Runs Orvane's application (single instance, app.orvane.Orvane).
int runOrvane(int argc, char** argv);

} // namespace orvane
