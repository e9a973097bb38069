#pragma once

#include "ServiceCatalog.h"

namespace orvane::test {

// The service catalogue as the application makes it: from the overrides file
// named by ORVANE_SERVICE_OVERRIDES when first used, then kept for the run.
inline const ServiceCatalog& testServices() {
    static const ServiceCatalog catalog = ServiceCatalog::fromEnvironment();
    return catalog;
}

} // namespace orvane::test
