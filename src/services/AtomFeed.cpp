#include "AtomFeed.h"

#include "NotificationFields.h"
#include "Text.h"
#include "XMLDocument.h"

#include <glib.h>

#include <memory>

namespace orvane {

namespace {

constexpr const char* kAtom03Namespace = "http://purl.org/atom/ns#";
constexpr const char* kAtom10Namespace = "http://www.w3.org/2005/Atom";

struct XmlCharDeleter {
    void operator()(xmlChar* text) const { xmlFree(text); }
};
using XmlCharPtr = std::unique_ptr<xmlChar, XmlCharDeleter>;

using XMLDocument::text;

// An element of the feed's own namespace with this name.
bool isNamed(const xmlNode* node, const char* name, const xmlChar* ns) {
    return node->type == XML_ELEMENT_NODE && node->ns && xmlStrEqual(node->ns->href, ns)
        && xmlStrEqual(node->name, BAD_CAST name);
}

// The element's whole text, or nothing when it is longer than maxBytes.
std::optional<std::string> rawText(const xmlNode* node, size_t maxBytes) {
    XmlCharPtr content(xmlNodeGetContent(node));
    if (!content)
        return std::string();
    std::string_view view(text(content.get()));
    if (view.size() > maxBytes)
        return std::nullopt;
    return std::string(view);
}

// One plain line of at most maxChars characters, a longer text cut with "…",
// runs of spaces made one.
std::string plainLine(const xmlNode* node, size_t maxChars) {
    XmlCharPtr content(xmlNodeGetContent(node));
    if (!content)
        return {};
    // Enough bytes for maxChars characters and the cut's mark; the rest is never shown.
    std::string_view view = std::string_view(text(content.get())).substr(0, maxChars * 4 + 8);
    std::string line;
    for (char c : NotificationFields::plainText(std::string(Text::trimmed(view, Text::isASCIISpace)), maxChars, false)) {
        if (c != ' ' || (!line.empty() && line.back() != ' '))
            line += c;
    }
    return NotificationFields::trimmed(line);
}

bool isEmailAddress(std::string_view text) {
    if (text.empty() || text.size() > AtomFeed::kMaxEmailBytes)
        return false;
    size_t at = text.find('@');
    if (at == 0 || at == std::string_view::npos || at + 1 == text.size() || text.find('@', at + 1) != std::string_view::npos)
        return false;
    for (unsigned char c : text) {
        if (c <= 0x20 || c >= 0x7f || std::string_view("<>()[]\\,;:\"").find(char(c)) != std::string_view::npos)
            return false;
    }
    return true;
}

bool isWebAddress(const std::string& text) {
    if (text.empty() || text.size() > AtomFeed::kMaxLinkBytes)
        return false;
    for (unsigned char c : text) {
        if (c <= 0x20 || c == 0x7f)
            return false;
    }
    GUri* uri = g_uri_parse(text.c_str(), G_URI_FLAGS_NONE, nullptr);
    if (!uri)
        return false;
    const char* scheme = g_uri_get_scheme(uri);
    const char* host = g_uri_get_host(uri);
    bool web = scheme && (!g_ascii_strcasecmp(scheme, "https") || !g_ascii_strcasecmp(scheme, "http")) && host
        && *host && !g_uri_get_userinfo(uri);
    g_uri_unref(uri);
    return web;
}

// Seconds since 1970 of an ISO 8601 time with a zone (UTC when it names
// none); 0 for anything else or a time before 1970.
int64_t timeOf(const xmlNode* node) {
    auto text = rawText(node, 64);
    if (!text || text->empty())
        return 0;
    GTimeZone* utc = g_time_zone_new_utc();
    GDateTime* time = g_date_time_new_from_iso8601(std::string(Text::trimmed(*text, Text::isASCIISpace)).c_str(), utc);
    g_time_zone_unref(utc);
    if (!time)
        return 0;
    int64_t seconds = g_date_time_to_unix(time);
    g_date_time_unref(time);
    return seconds > 0 ? seconds : 0;
}

std::optional<int64_t> countOf(const xmlNode* node) {
    auto text = rawText(node, 32);
    if (!text)
        return std::nullopt;
    std::string_view digits = Text::trimmed(*text, Text::isASCIISpace);
    if (digits.empty() || digits.size() > 9)
        return std::nullopt;
    int64_t count = 0;
    for (char c : digits) {
        if (!g_ascii_isdigit(c))
            return std::nullopt;
        count = count * 10 + (c - '0');
    }
    return count;
}

std::optional<AtomFeed::Entry> readEntry(const xmlNode* entryNode, const xmlChar* ns) {
    AtomFeed::Entry entry;
    for (const xmlNode* child = entryNode->children; child; child = child->next) {
        if (isNamed(child, "id", ns)) {
            auto id = rawText(child, AtomFeed::kMaxIDBytes + 64);
            entry.id = id ? NotificationFields::trimmed(*id) : std::string();
            if (entry.id.empty() || entry.id.size() > AtomFeed::kMaxIDBytes)
                return std::nullopt;
        } else if (isNamed(child, "title", ns)) {
            entry.subject = plainLine(child, AtomFeed::kMaxSubjectChars);
        } else if (isNamed(child, "summary", ns)) {
            entry.summary = plainLine(child, AtomFeed::kMaxSummaryChars);
        } else if (isNamed(child, "issued", ns) || isNamed(child, "published", ns)) {
            entry.issued = timeOf(child);
        } else if (isNamed(child, "modified", ns) || isNamed(child, "updated", ns)) {
            entry.modified = timeOf(child);
        } else if (isNamed(child, "link", ns) && entry.link.empty()) {
            XmlCharPtr rel(xmlGetNoNsProp(child, BAD_CAST "rel"));
            XmlCharPtr href(xmlGetNoNsProp(child, BAD_CAST "href"));
            if ((!rel || xmlStrEqual(rel.get(), BAD_CAST "alternate")) && href && isWebAddress(text(href.get())))
                entry.link = text(href.get());
        } else if (isNamed(child, "author", ns)) {
            for (const xmlNode* field = child->children; field; field = field->next) {
                if (isNamed(field, "name", ns))
                    entry.authorName = plainLine(field, AtomFeed::kMaxNameChars);
                else if (isNamed(field, "email", ns)) {
                    auto email = rawText(field, AtomFeed::kMaxEmailBytes + 64);
                    std::string_view trimmed = email ? Text::trimmed(*email, Text::isASCIISpace) : std::string_view();
                    entry.authorEmail = isEmailAddress(trimmed) ? std::string(trimmed) : std::string();
                }
            }
        }
    }
    if (entry.id.empty())
        return std::nullopt;
    return entry;
}

} // namespace

std::optional<AtomFeed> AtomFeed::parse(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > kMaxFeedBytes)
        return std::nullopt;
    XMLDocument::DocPtr doc = XMLDocument::parseWithoutDTD(bytes);
    if (!doc)
        return std::nullopt;
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    if (!root || !root->ns || !xmlStrEqual(root->name, BAD_CAST "feed"))
        return std::nullopt;
    const xmlChar* ns = root->ns->href;
    if (!xmlStrEqual(ns, BAD_CAST kAtom03Namespace) && !xmlStrEqual(ns, BAD_CAST kAtom10Namespace))
        return std::nullopt;
    AtomFeed feed;
    std::optional<int64_t> fullcount;
    for (const xmlNode* node = root->children; node; node = node->next) {
        if (isNamed(node, "fullcount", ns) && !fullcount) {
            fullcount = countOf(node);
            if (!fullcount)
                return std::nullopt;
        } else if (isNamed(node, "entry", ns) && feed.entries.size() < kMaxEntries) {
            if (auto entry = readEntry(node, ns))
                feed.entries.push_back(std::move(*entry));
        }
    }
    if (!fullcount || *fullcount > kMaxCount)
        return std::nullopt;
    feed.fullcount = *fullcount;
    return feed;
}

} // namespace orvane
