#include "MailtoComponents.h"

#include "GRef.h"
#include "Text.h"

#include <glib.h>

namespace orvane {

namespace {

// Cuts at every ",", trims spaces and tabs, drops empty pieces.
std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> result;
    size_t start = 0;
    for (;;) {
        size_t comma = text.find(',', start);
        std::string piece = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (auto trimmed = Text::trimmed(piece, Text::isSpaceOrTab); !trimmed.empty())
            result.emplace_back(trimmed);
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return result;
}

// Percent-decodes one query name or value. "+" stays a plus sign, and a "%"
// that starts no escape stays as it is, as GLib leaves it in the path.
// Nothing when the result holds a NUL or is not UTF-8: such a link cannot be
// taken apart, just as GLib refuses such a path.
std::optional<std::string> decode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && g_ascii_isxdigit(text[i + 1]) && g_ascii_isxdigit(text[i + 2])) {
            out += static_cast<char>(g_ascii_xdigit_value(text[i + 1]) << 4 | g_ascii_xdigit_value(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    if (out.find('\0') != std::string::npos || !g_utf8_validate(out.data(), static_cast<gssize>(out.size()), nullptr))
        return std::nullopt;
    return out;
}

struct QueryItem {
    std::string name;
    std::optional<std::string> value;
};

// The query in link order: items at "&", name and value at the first "=".
// Not GLib's GUriParamsIter: it refuses an item without "=" and a "%" that
// starts no escape, both of which mail links in the wild carry ("?subject",
// "50% off"), and a mail link is read leniently, as mail programs do.
std::optional<std::vector<QueryItem>> queryItems(std::string_view query) {
    std::vector<QueryItem> items;
    size_t start = 0;
    for (;;) {
        size_t amp = query.find('&', start);
        std::string_view item = query.substr(start, amp == std::string_view::npos ? std::string_view::npos : amp - start);
        size_t eq = item.find('=');
        auto name = decode(item.substr(0, eq));
        if (!name)
            return std::nullopt;
        QueryItem parsed { *name, std::nullopt };
        if (eq != std::string_view::npos) {
            parsed.value = decode(item.substr(eq + 1));
            if (!parsed.value)
                return std::nullopt;
        }
        items.push_back(std::move(parsed));
        if (amp == std::string_view::npos)
            break;
        start = amp + 1;
    }
    return items;
}

} // namespace

std::optional<MailtoComponents> MailtoComponents::fromURL(std::string_view url) {
    std::string text(url);
    // Not g_uri_peek_scheme: it interns every scheme it is shown, for good.
    if (g_ascii_strncasecmp(text.c_str(), "mailto:", 7) != 0)
        return std::nullopt;

    MailtoComponents components;
    GErrorPtr error;
    GUri* parsed = g_uri_parse(text.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_ENCODED_QUERY | G_URI_FLAGS_PARSE_RELAXED), GErrorOut(error));
    if (!parsed)
        return components;
    std::unique_ptr<GUri, decltype(&g_uri_unref)> uri(parsed, g_uri_unref);

    std::optional<std::vector<QueryItem>> items;
    if (const char* query = g_uri_get_query(uri.get())) {
        items = queryItems(query);
        if (!items)
            return components;
    }
    const char* path = g_uri_get_path(uri.get());
    if (path && !g_utf8_validate(path, -1, nullptr))
        return components;

    if (path && *path)
        components.to = split(path);
    if (!items)
        return components;
    for (const auto& item : *items) {
        GCharPtr lowered(g_utf8_strdown(item.name.c_str(), -1));
        std::string_view name(lowered.get());
        std::string value = item.value.value_or(std::string());
        if (name == "to") {
            auto more = split(value);
            components.to.insert(components.to.end(), more.begin(), more.end());
        } else if (name == "cc") {
            components.cc = split(value);
        } else if (name == "bcc") {
            components.bcc = split(value);
        } else if (name == "subject") {
            components.subject = value;
        } else if (name == "body") {
            components.body = value;
        }
    }
    return components;
}

} // namespace orvane
