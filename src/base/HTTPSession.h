#pragma once

#include <libsoup/soup.h>

namespace orvane::HTTPSession {

// The one process-wide libsoup session for Orvane's own requests (the usage
// ping, the update feed; pages use their WebKit network sessions). Created on
// first use and kept for the whole run; main thread only. It has no cache,
// no cookie jar and sends no extra headers.
SoupSession* shared();

} // namespace orvane::HTTPSession
