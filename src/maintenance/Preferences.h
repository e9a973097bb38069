#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
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
    // Removes every key of the group that `which` picks, in the file and in
    // memory. False when the file could not be read or written.
    bool removeKeys(const std::function<bool(const std::string& key)>& which);

    const std::string& path() const { return m_path; }

    using Value = std::variant<std::string, double>;
    // What the getters read in a file's text: the keys of the group as
    // texts, and those whose value reads as a finite number as numbers too.
    struct Values {
        std::map<std::string, std::string> strings;
        std::map<std::string, double> numbers;
        bool operator==(const Values&) const = default;
    };
    // Nothing when the text is longer than kMaxFileBytes or cannot be parsed.
    static std::optional<Values> parse(std::string_view bytes);
    // The text with one key of the group set and everything else kept, or
    // nothing when the text cannot be parsed.
    static std::optional<std::string> withValue(std::string_view bytes, const std::string& key, const Value& value);

    static std::string defaultPath();
    static constexpr const char* kGroup = "Orvane";
    static constexpr size_t kMaxFileBytes = 1024 * 1024;

private:
    std::optional<Values> fileValues() const;
    bool store(const std::string& key, const Value& value);

    std::string m_path;
    std::map<std::string, Value> m_setThisRun;
};

} // namespace orvane
