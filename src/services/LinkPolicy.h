#pragma once

#include "ExternalLink.h"
#include "MailService.h"

#include <set>
#include <string>

namespace orvane {

// Where an account's links and pop-ups go, by its service's in-app hosts:
// which addresses leave the account's pages (for the browser or the
// mail-link routing), which it can show at all, and what a pop-up window
// says about the page it shows. Pure: no I/O, any thread.
class LinkPolicy {
public:
    explicit LinkPolicy(const MailService& service) : m_inAppHosts(service.inAppHosts) { }

    // Where a link or window.open to `uri` in the account's pages leads
    // outside them: the browser for an http(s) address (unwrapped from a
    // redirect wrapper) whose host is not in-app, the mail-link routing for
    // mailto:. Nothing when the account's pages keep it.
    ExternalLink leavingLink(const std::string& uri) const;

    // A pop-up window's title while it shows `uri`: "Orvane" on the
    // service's own hosts, else "Orvane — " and the page's host (the scheme
    // for an address without one), so a page cannot pass for the service.
    std::string popupTitle(const std::string& uri) const;

    const std::set<std::string>& inAppHosts() const { return m_inAppHosts; }

    // What a page can show in Orvane (http, https, about, blob, data); any
    // other address is for the desktop, if for anything.
    static bool isPageAddress(const std::string& uri);
    // The scheme, in lower case; empty when there is none.
    static std::string schemeOf(const std::string& uri);
    // The host, in lower case; empty when there is none.
    static std::string hostOf(const std::string& uri);

private:
    std::set<std::string> m_inAppHosts;
};

} // namespace orvane
