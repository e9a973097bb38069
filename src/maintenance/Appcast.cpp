#include "Appcast.h"

#include "GRef.h"
#include "Text.h"
#include "XMLDocument.h"

#include <glib.h>
#include <libxml/HTMLparser.h>
#include <libxml/tree.h>

#include <memory>

namespace orvane {

namespace {

constexpr const char* kSparkleNamespace = "http://www.andymatuschak.org/xml-namespaces/sparkle";
constexpr size_t kMaxURLBytes = 2048;
constexpr size_t kMaxTitleBytes = 512;
constexpr size_t kMaxDescriptionBytes = 256 * 1024;
constexpr int kMaxNotesDepth = 64;

using XmlDocPtr = XMLDocument::DocPtr;

const char* str(const xmlChar* text) { return XMLDocument::text(text); }

bool isNamed(const xmlNode* node, const char* name, const char* namespaceURI = nullptr) {
    if (node->type != XML_ELEMENT_NODE || !xmlStrEqual(node->name, BAD_CAST name))
        return false;
    if (!namespaceURI)
        return !node->ns;
    return node->ns && xmlStrEqual(node->ns->href, BAD_CAST namespaceURI);
}

std::string trimmed(std::string_view text) {
    return std::string(Text::trimmed(text, Text::isASCIISpace));
}

// The element's text, trimmed; nothing when it is longer than maxBytes.
std::optional<std::string> textOf(const xmlNode* node, size_t maxBytes) {
    xmlChar* content = xmlNodeGetContent(node);
    if (!content)
        return std::string();
    std::string_view view(str(content));
    std::optional<std::string> result;
    if (view.size() <= maxBytes + 64)
        result = trimmed(view);
    xmlFree(content);
    if (result && result->size() > maxBytes)
        return std::nullopt;
    return result;
}

std::optional<std::string> attribute(const xmlNode* node, const char* name, const char* namespaceURI, size_t maxBytes) {
    xmlChar* value = namespaceURI ? xmlGetNsProp(node, BAD_CAST name, BAD_CAST namespaceURI)
                                  : xmlGetNoNsProp(node, BAD_CAST name);
    if (!value)
        return std::nullopt;
    std::string text = trimmed(str(value));
    xmlFree(value);
    if (text.size() > maxBytes)
        return std::nullopt;
    return text;
}

bool isHiddenCharacter(gunichar c) {
    auto type = g_unichar_type(c);
    return type == G_UNICODE_CONTROL || type == G_UNICODE_FORMAT || type == G_UNICODE_LINE_SEPARATOR
        || type == G_UNICODE_PARAGRAPH_SEPARATOR;
}

// One line of display text: controls, bidirectional overrides and other
// invisible characters become spaces, runs of spaces one.
std::string cleanLine(std::string_view text) {
    std::string valid = text.size() && g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)
        ? std::string(text)
        : GCharPtr(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()))).get();
    std::string out;
    for (const char* p = valid.c_str(); *p; p = g_utf8_next_char(p)) {
        gunichar c = g_utf8_get_char(p);
        if (isHiddenCharacter(c) || g_unichar_isspace(c)) {
            if (!out.empty() && out.back() != ' ')
                out += ' ';
            continue;
        }
        out.append(p, static_cast<size_t>(g_utf8_next_char(p) - p));
    }
    return trimmed(out);
}

bool isValidVersion(const std::string& version) {
    if (version.empty() || version.size() > Appcast::kMaxVersionBytes)
        return false;
    if (!g_utf8_validate(version.data(), static_cast<gssize>(version.size()), nullptr))
        return false;
    for (const char* p = version.c_str(); *p; p = g_utf8_next_char(p)) {
        if (isHiddenCharacter(g_utf8_get_char(p)))
            return false;
    }
    return true;
}

std::string webAddressOrEmpty(const std::optional<std::string>& text) {
    if (!text || !Appcast::isWebAddress(*text))
        return {};
    return *text;
}

// Reads one <item>; nothing when it cannot be offered on this system.
std::optional<Appcast::Item> readItem(const xmlNode* itemNode) {
    Appcast::Item item;
    std::optional<std::string> version;
    std::optional<std::string> shortVersion;
    std::string link;
    std::string enclosureURL;
    for (const xmlNode* child = itemNode->children; child; child = child->next) {
        if (child->type != XML_ELEMENT_NODE)
            continue;
        if (isNamed(child, "version", kSparkleNamespace)) {
            version = textOf(child, Appcast::kMaxVersionBytes);
            if (!version)
                return std::nullopt;
        } else if (isNamed(child, "shortVersionString", kSparkleNamespace)) {
            shortVersion = textOf(child, Appcast::kMaxVersionBytes);
        } else if (isNamed(child, "minimumSystemVersion", kSparkleNamespace)) {
            auto minimum = textOf(child, Appcast::kMaxVersionBytes);
            if (!minimum)
                return std::nullopt;
            item.minimumSystemVersion = *minimum;
        } else if (isNamed(child, "channel", kSparkleNamespace)) {
            // Releases on a named channel (betas, for instance) are for those
            // who asked for that channel, which Orvane never does.
            return std::nullopt;
        } else if (isNamed(child, "releaseNotesLink", kSparkleNamespace)) {
            item.releaseNotesURL = webAddressOrEmpty(textOf(child, kMaxURLBytes));
        } else if (isNamed(child, "title")) {
            item.title = cleanLine(textOf(child, kMaxTitleBytes).value_or(""));
        } else if (isNamed(child, "link")) {
            link = webAddressOrEmpty(textOf(child, kMaxURLBytes));
        } else if (isNamed(child, "description")) {
            item.descriptionHTML = textOf(child, kMaxDescriptionBytes).value_or("");
        } else if (isNamed(child, "enclosure")) {
            auto os = attribute(child, "os", kSparkleNamespace, 64);
            if (os && g_ascii_strcasecmp(os->c_str(), "linux") != 0)
                return std::nullopt;
            enclosureURL = webAddressOrEmpty(attribute(child, "url", nullptr, kMaxURLBytes));
            if (!version)
                version = attribute(child, "version", kSparkleNamespace, Appcast::kMaxVersionBytes);
            if (!shortVersion)
                shortVersion = attribute(child, "shortVersionString", kSparkleNamespace, Appcast::kMaxVersionBytes);
        }
    }
    if (!version || !isValidVersion(*version))
        return std::nullopt;
    item.version = *version;
    item.displayVersion = shortVersion ? cleanLine(*shortVersion) : std::string();
    if (item.displayVersion.empty())
        item.displayVersion = cleanLine(item.version);
    item.downloadURL = !link.empty() ? link : enclosureURL;
    if (item.downloadURL.empty())
        return std::nullopt;
    return item;
}

// Turns an HTML fragment into lines of text.
class PlainTextWriter {
public:
    explicit PlainTextWriter(size_t maxBytes) : m_maxBytes(maxBytes) {}

    void write(const xmlNode* node, int depth) {
        for (; node && !full(); node = node->next) {
            if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
                text(str(node->content));
                continue;
            }
            if (node->type != XML_ELEMENT_NODE || depth > kMaxNotesDepth)
                continue;
            std::string name = GCharPtr(g_ascii_strdown(str(node->name), -1)).get();
            if (name == "script" || name == "style" || name == "head" || name == "template")
                continue;
            int breaks = blockBreaks(name);
            if (name == "br")
                m_out += '\n';
            newlines(breaks);
            if (name == "li")
                m_out += "• ";
            write(node->children, depth + 1);
            newlines(breaks);
        }
    }

    std::string finish() {
        std::string result;
        size_t blankRun = 0;
        size_t start = 0;
        while (start <= m_out.size()) {
            size_t end = m_out.find('\n', start);
            if (end == std::string::npos)
                end = m_out.size();
            std::string line = trimmed(std::string_view(m_out).substr(start, end - start));
            start = end + 1;
            if (line.empty()) {
                ++blankRun;
                continue;
            }
            if (!result.empty())
                result += blankRun ? "\n\n" : "\n";
            blankRun = 0;
            result += line;
        }
        if (result.size() > m_maxBytes) {
            // The ellipsis counts within the bound.
            constexpr std::string_view ellipsis = "…";
            if (m_maxBytes < ellipsis.size())
                return {};
            const char* cut = g_utf8_find_prev_char(result.c_str(), result.c_str() + m_maxBytes - ellipsis.size() + 1);
            result.resize(cut ? static_cast<size_t>(cut - result.c_str()) : 0);
            result = trimmed(result) + std::string(ellipsis);
        }
        return result;
    }

private:
    static int blockBreaks(const std::string& name) {
        if (name == "p" || name == "pre" || name == "blockquote" || name == "table" || name == "ul"
            || name == "ol" || (name.size() == 2 && name[0] == 'h' && name[1] >= '1' && name[1] <= '6'))
            return 2;
        if (name == "div" || name == "li" || name == "tr" || name == "dt" || name == "dd" || name == "hr"
            || name == "section" || name == "article" || name == "header" || name == "footer")
            return 1;
        return 0;
    }

    bool full() const { return m_out.size() > m_maxBytes + 16; }

    void newlines(int count) {
        if (count == 0 || m_out.empty())
            return;
        int have = 0;
        for (auto it = m_out.rbegin(); it != m_out.rend() && (*it == '\n' || *it == ' '); ++it)
            have += *it == '\n';
        for (; have < count; ++have)
            m_out += '\n';
    }

    void text(const char* content) {
        if (!content)
            return;
        // A broken document can leave bytes that are not UTF-8 in the text.
        GCharPtr valid(g_utf8_make_valid(content, -1));
        for (const char* p = valid.get(); *p && !full(); p = g_utf8_next_char(p)) {
            gunichar c = g_utf8_get_char(p);
            if (g_unichar_isspace(c) || isHiddenCharacter(c)) {
                if (!m_out.empty() && m_out.back() != ' ' && m_out.back() != '\n')
                    m_out += ' ';
                continue;
            }
            m_out.append(p, static_cast<size_t>(g_utf8_next_char(p) - p));
        }
    }

    size_t m_maxBytes;
    std::string m_out;
};

enum class PartKind { Number, Text, Separator };

PartKind kindOf(char c) {
    if (g_ascii_isdigit(c))
        return PartKind::Number;
    if (c == '.' || g_ascii_isspace(c) || g_ascii_ispunct(c))
        return PartKind::Separator;
    return PartKind::Text; // letters, and every byte of a non-ASCII character
}

// Splits into runs of digits and runs of text; every separator is a part of
// its own.
std::vector<std::string_view> splitVersion(std::string_view version) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (size_t i = 1; i <= version.size(); ++i) {
        if (i == version.size() || kindOf(version[i]) != kindOf(version[start])
            || kindOf(version[start]) == PartKind::Separator) {
            parts.push_back(version.substr(start, i - start));
            start = i;
        }
    }
    return parts;
}

// Digit runs of any length, without converting them to a machine integer.
int compareNumbers(std::string_view a, std::string_view b) {
    while (a.size() > 1 && a.front() == '0')
        a.remove_prefix(1);
    while (b.size() > 1 && b.front() == '0')
        b.remove_prefix(1);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    int order = a.compare(b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

} // namespace

bool Appcast::isWebAddress(std::string_view uri) {
    if (uri.empty() || uri.size() > kMaxURLBytes)
        return false;
    for (char c : uri) {
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7f)
            return false;
    }
    std::string text(uri);
    GUri* parsed = g_uri_parse(text.c_str(), G_URI_FLAGS_NONE, nullptr);
    if (!parsed)
        return false;
    const char* scheme = g_uri_get_scheme(parsed);
    const char* host = g_uri_get_host(parsed);
    bool ok = scheme && (!g_ascii_strcasecmp(scheme, "https") || !g_ascii_strcasecmp(scheme, "http"))
        && host && *host && !g_uri_get_userinfo(parsed);
    g_uri_unref(parsed);
    return ok;
}

std::optional<Appcast> Appcast::parse(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > kMaxFeedBytes)
        return std::nullopt;
    XmlDocPtr doc = XMLDocument::parseWithoutDTD(bytes);
    if (!doc)
        return std::nullopt;
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    if (!root || !isNamed(root, "rss"))
        return std::nullopt;
    Appcast appcast;
    for (const xmlNode* channel = root->children; channel; channel = channel->next) {
        if (!isNamed(channel, "channel"))
            continue;
        for (const xmlNode* node = channel->children; node; node = node->next) {
            if (!isNamed(node, "item"))
                continue;
            if (auto item = readItem(node))
                appcast.m_items.push_back(std::move(*item));
        }
    }
    return appcast;
}

const Appcast::Item* Appcast::newest(const std::optional<std::string>& systemVersion) const {
    const Item* best = nullptr;
    for (const Item& item : m_items) {
        if (systemVersion && !item.minimumSystemVersion.empty()
            && compareVersions(*systemVersion, item.minimumSystemVersion) < 0)
            continue;
        if (!best || compareVersions(item.version, best->version) > 0)
            best = &item;
    }
    return best;
}

int Appcast::compareVersions(std::string_view a, std::string_view b) {
    auto partsA = splitVersion(a);
    auto partsB = splitVersion(b);
    size_t common = std::min(partsA.size(), partsB.size());
    for (size_t i = 0; i < common; ++i) {
        PartKind kindA = kindOf(partsA[i][0]);
        PartKind kindB = kindOf(partsB[i][0]);
        if (kindA == kindB) {
            int order = 0;
            if (kindA == PartKind::Number)
                order = compareNumbers(partsA[i], partsB[i]);
            else if (kindA == PartKind::Text)
                order = partsA[i].compare(partsB[i]);
            if (order != 0)
                return order < 0 ? -1 : 1;
            continue;
        }
        // Text loses to anything (2.0 > 2.0b3); a number beats a separator.
        if (kindA == PartKind::Text)
            return -1;
        if (kindB == PartKind::Text)
            return 1;
        return kindA == PartKind::Number ? 1 : -1;
    }
    if (partsA.size() == partsB.size())
        return 0;
    // One is the other plus a tail: a tail that reaches text first is a
    // pre-release (1.0-beta < 1.0), one that reaches a number is a later
    // release (1.0.1 > 1.0); a tail of separators only changes nothing.
    const auto& longer = partsA.size() > partsB.size() ? partsA : partsB;
    int longerSign = partsA.size() > partsB.size() ? 1 : -1;
    for (size_t i = common; i < longer.size(); ++i) {
        PartKind kind = kindOf(longer[i][0]);
        if (kind == PartKind::Text)
            return -longerSign;
        if (kind == PartKind::Number)
            return longerSign;
    }
    return 0;
}

std::string Appcast::plainText(std::string_view html, size_t maxBytes) {
    if (html.empty() || html.size() > kMaxDescriptionBytes)
        return {};
    int options = HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_RECOVER;
    XmlDocPtr doc(htmlReadMemory(html.data(), static_cast<int>(html.size()), nullptr, "UTF-8", options));
    if (!doc)
        return {};
    PlainTextWriter writer(maxBytes);
    writer.write(xmlDocGetRootElement(doc.get()), 0);
    return writer.finish();
}

} // namespace orvane
