#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string_view>

namespace orvane::XMLDocument {

struct DocDeleter {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocDeleter>;

// The document in the bytes, or null unless it is well-formed XML without a
// document type declaration: a feed from the network has no use for a DTD,
// and a DTD is where entity expansion attacks live. Nothing is fetched.
DocPtr parseWithoutDTD(std::string_view bytes);

inline const char* text(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

} // namespace orvane::XMLDocument
