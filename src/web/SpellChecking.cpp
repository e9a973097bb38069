#include "SpellChecking.h"

#include <webkit/webkit.h>

#include <algorithm>
#include <cstring>

namespace orvane::SpellChecking {

std::vector<std::string> languages(const char* const* localeNames) {
    std::vector<std::string> found;
    for (const char* const* name = localeNames; name && *name; ++name) {
        std::string language(*name, std::min(strcspn(*name, ".@"), size_t(64)));
        if (language.empty() || language == "C" || language == "POSIX"
            || std::ranges::find(found, language) != found.end())
            continue;
        found.push_back(std::move(language));
    }
    return found;
}

std::vector<std::string> apply(bool on) {
    WebKitWebContext* context = webkit_web_context_get_default();
    webkit_web_context_set_spell_checking_enabled(context, on);
    std::vector<std::string> kept;
    if (!on)
        return kept;
    std::vector<std::string> wanted = languages(g_get_language_names());
    if (wanted.empty())
        return kept; // WebKit's own choice
    std::vector<const char*> names;
    for (const std::string& language : wanted)
        names.push_back(language.c_str());
    names.push_back(nullptr);
    webkit_web_context_set_spell_checking_languages(context, names.data());
    for (auto set = webkit_web_context_get_spell_checking_languages(context); set && *set; ++set)
        kept.emplace_back(*set);
    return kept;
}

} // namespace orvane::SpellChecking
