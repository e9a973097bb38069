#include "HTTPSession.h"

namespace orvane::HTTPSession {

SoupSession* shared() {
    // Deliberately never freed: requests in flight at exit are simply dropped.
    static SoupSession* session = soup_session_new();
    return session;
}

} // namespace orvane::HTTPSession
