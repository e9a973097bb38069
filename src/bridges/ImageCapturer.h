#pragma once

#include <jsc/jsc.h>

#include <optional>
#include <string>

namespace orvane {

// The target of the last right-click in one account view, in any of its
// frames, as the context-menu probe (bridges/context-menu-probe.js) reports it
// through the orvaneContextImage handler: the image's address and the address
// of the link around it. Overwritten by every report, never cleared otherwise.
class ImageCapturer {
public:
    // Addresses longer than this (huge data: URLs) are not kept.
    static constexpr size_t kMaxAddressBytes = 4 * 1024 * 1024;

    // Stores a report: a dictionary whose `img` and `link` are texts. A
    // missing, non-text, empty or oversized value is stored as none; a body
    // that is no dictionary sets both to none.
    void receive(JSCValue* body);

    const std::optional<std::string>& src() const { return m_src; }
    const std::optional<std::string>& linkSrc() const { return m_linkSrc; }

private:
    std::optional<std::string> m_src;
    std::optional<std::string> m_linkSrc;
};

} // namespace orvane
