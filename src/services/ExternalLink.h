#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvane {

// What happens to an address that leaves an account's pages (a link or a
// window.open that the account does not keep): the default browser gets an
// http or https address, Orvane's own mail-link routing gets a mailto: link,
// and nothing else ever reaches the desktop. The address in the decision is
// exactly the one that was checked, so the caller hands on nothing else.
struct ExternalLink {
    enum class Action { Browser, Mail, Nothing };
    Action action = Action::Nothing;
    std::string address; // Browser: the exact http(s) address for the desktop; Mail: the mailto: address

    // Longer addresses go nowhere (browsers stop at about 2 MB too).
    static constexpr size_t kMaxAddressBytes = 2 * 1024 * 1024;
};

// The decision for an address leaving the account's pages. A Google redirect
// wrapper (google.com/url?q= or url=, accounts.google.com's continue=) on an
// http(s) address is unwrapped one level, when it points at an http(s)
// address; the browser then gets the target, never the wrapper. Bytes a URL
// cannot hold (controls, spaces, non-ASCII) are percent-encoded before the
// check. Pure: no I/O, any thread.
ExternalLink externalLinkFor(std::string_view address);

} // namespace orvane
