#include "support/ProcessEnvironment.h"

#include <glib.h>

#include <cstring>

#include <algorithm>

namespace orvane::test {

ProcessEnvironment::ProcessEnvironment() {
    gchar** environment = g_get_environ();
    for (gchar** entry = environment; entry && *entry; ++entry) {
        const char* equals = strchr(*entry, '=');
        if (equals)
            m_entries.emplace_back(std::string(*entry, size_t(equals - *entry)), std::string(equals + 1));
    }
    g_strfreev(environment);
}

void ProcessEnvironment::set(const std::string& name, const std::string& value) {
    unset(name);
    m_entries.emplace_back(name, value);
}

void ProcessEnvironment::unset(const std::string& name) {
    std::erase_if(m_entries, [&](const auto& entry) { return entry.first == name; });
}

std::vector<std::string> ProcessEnvironment::list() const {
    std::vector<std::string> result;
    for (const auto& [name, value] : m_entries)
        result.push_back(name + "=" + value);
    return result;
}

} // namespace orvane::test
