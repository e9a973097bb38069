#include "XMLDocument.h"

#include <libxml/parser.h>

namespace orvane::XMLDocument {

namespace {

struct ParserDeleter {
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};

// The parse stops as soon as a DTD is declared.
void refuseDoctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    xmlStopParser(static_cast<xmlParserCtxt*>(context));
}

} // namespace

DocPtr parseWithoutDTD(std::string_view bytes) {
    std::unique_ptr<xmlParserCtxt, ParserDeleter> context(xmlNewParserCtxt());
    if (!context || !context->sax)
        return nullptr;
    context->sax->internalSubset = refuseDoctype;
    context->sax->externalSubset = refuseDoctype;
    int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOCDATA;
    DocPtr doc(xmlCtxtReadMemory(context.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr, options));
    if (!doc || !context->wellFormed || doc->intSubset || doc->extSubset)
        return nullptr;
    return doc;
}

} // namespace orvane::XMLDocument
