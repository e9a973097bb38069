#pragma once

#include <glib.h>

#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

// Collects the warnings Orvane logs (domain "Orvane") while it lives, instead
// of printing them.
class LoggedWarnings {
public:
    LoggedWarnings() {
        m_handler = g_log_set_handler("Orvane", GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION),
            +[](const gchar*, GLogLevelFlags, const gchar* message, gpointer self) {
                static_cast<LoggedWarnings*>(self)->m_messages.emplace_back(message ? message : "");
            }, this);
    }
    ~LoggedWarnings() { g_log_remove_handler("Orvane", m_handler); }
    LoggedWarnings(const LoggedWarnings&) = delete;
    LoggedWarnings& operator=(const LoggedWarnings&) = delete;

    // The latest warning holding `text`; empty when there is none.
    std::string find(std::string_view text) const {
        for (auto it = m_messages.rbegin(); it != m_messages.rend(); ++it)
            if (it->find(text) != std::string::npos)
                return *it;
        return {};
    }
    void clear() { m_messages.clear(); }

private:
    guint m_handler = 0;
    std::vector<std::string> m_messages;
};

} // namespace orvane::test
