#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orvane::test {

// The environment of a program a test starts: this process's environment
// with entries set or removed.
class ProcessEnvironment {
public:
    ProcessEnvironment();
    void set(const std::string& name, const std::string& value);
    void unset(const std::string& name);
    // NAME=value entries, as GSubprocessLauncher takes them.
    std::vector<std::string> list() const;

private:
    std::vector<std::pair<std::string, std::string>> m_entries;
};

} // namespace orvane::test
