#include "DownloadsFolder.h"

#include "Files.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <sys/stat.h>

#include <sstream>

namespace orvane::DownloadsFolder {

namespace {

constexpr size_t kMaxUserDirsBytes = 64 * 1024;

std::string home() {
    const char* value = g_getenv("HOME");
    return value && g_path_is_absolute(value) ? value : g_get_home_dir();
}

std::string configHome() {
    const char* value = g_getenv("XDG_CONFIG_HOME");
    return value && g_path_is_absolute(value) ? value : home() + "/.config";
}

// XDG_DOWNLOAD_DIR as xdg-user-dirs writes it: "$HOME/..." or an absolute
// path, in double quotes. Anything else is ignored, as GLib does.
std::optional<std::string> fromUserDirs() {
    auto text = Files::read(configHome() + "/user-dirs.dirs", kMaxUserDirsBytes);
    if (!text)
        return std::nullopt;
    std::optional<std::string> found;
    std::istringstream lines(*text);
    std::string line;
    while (std::getline(lines, line)) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, 16, "XDG_DOWNLOAD_DIR") != 0)
            continue;
        size_t eq = line.find_first_not_of(" \t", start + 16);
        if (eq == std::string::npos || line[eq] != '=')
            continue;
        size_t open = line.find_first_not_of(" \t", eq + 1);
        if (open == std::string::npos || line[open] != '"')
            continue;
        size_t close = line.rfind('"');
        if (close == open)
            continue;
        std::string value = line.substr(open + 1, close - open - 1);
        std::string path;
        if (value.rfind("$HOME", 0) == 0) {
            std::string rest = value.substr(5);
            if (!rest.empty() && rest[0] != '/')
                continue;
            path = home() + rest;
        } else if (!value.empty() && value[0] == '/') {
            path = value;
        } else {
            continue;
        }
        while (path.size() > 1 && path.back() == '/')
            path.pop_back();
        found = path; // the last assignment wins, as in a shell
    }
    return found;
}

bool isFolder(const std::string& path) {
    GStatBuf st {};
    return g_stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

} // namespace

std::string configuredPath() {
    if (auto configured = fromUserDirs())
        return *configured;
    return home() + "/Downloads";
}

std::optional<std::string> path() {
    std::string folder = configuredPath();
    if (!isFolder(folder))
        Files::makeFolder(folder);
    if (!isFolder(folder))
        return std::nullopt;
    return folder;
}

} // namespace orvane::DownloadsFolder
