#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

namespace orvane {

// Orvane's per-user preferences: a key file, by default
// $XDG_CONFIG_HOME/Orvane/preferences.ini, group [Orvane]. Every read looks
// at the file; every write re-reads it, changes the one key and replaces the
// file atomically, so groups, keys and comments written by anyone else stay.
// A file that exists but cannot be parsed is never overwritten. Values set
// during this run are also kept in memory and win over the file, so a corrupt
// or unwritable file still gives consistent answers until the process ends.
// Nothing here throws; a file not written is logged as a warning.
class Preferences {
public:
    explicit Preferences(std::string path = defaultPath());

    std::optional<std::string> string(const std::string& key) const;
    // Only finite numbers; anything else reads as absent.
    std::optional<double> number(const std::string& key) const;

    // False when the value could only be kept in memory.
    bool setString(const std::string& key, const std::string& value);
    bool setNumber(const std::string& key, double value);

    const std::string& path() const { return m_path; }

    static std::string defaultPath();
    static constexpr const char* kGroup = "Orvane";
    static constexpr size_t kMaxFileBytes = 1024 * 1024;

private:
    using Value = std::variant<std::string, double>;
    std::optional<Value> fileValue(const std::string& key, bool wantNumber) const;
    bool store(const std::string& key, const Value& value);

    std::string m_path;
    std::map<std::string, Value> m_setThisRun;
};

} // namespace orvane
