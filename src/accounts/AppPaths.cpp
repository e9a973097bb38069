#include "AppPaths.h"

#include "Files.h"

#include <glib.h>

namespace orvane::AppPaths {

// GLib caches the XDG folders for the life of the process; Orvane reads the
// variables on every use so each value is "evaluated anew".
static std::string xdgHome(const char* variable, const char* fallback) {
    const char* value = g_getenv(variable);
    if (value && g_path_is_absolute(value))
        return value;
    const char* home = g_getenv("HOME");
    return std::string(home && *home ? home : g_get_home_dir()) + "/" + fallback;
}

std::string dataHome() { return xdgHome("XDG_DATA_HOME", ".local/share"); }
std::string cacheHome() { return xdgHome("XDG_CACHE_HOME", ".cache"); }
std::string configHome() { return xdgHome("XDG_CONFIG_HOME", ".config"); }

std::string supportDir() {
    std::string dir = dataHome() + "/Orvane";
    Files::makeFolder(dir);
    return dir;
}

std::string avatarsDir() {
    std::string dir = supportDir() + "/Avatars";
    Files::makeFolder(dir);
    return dir;
}

std::string accountsFile() { return supportDir() + "/accounts.json"; }

std::string websiteDataDir(const std::string& dataStoreID) {
    return dataHome() + "/Orvane/WebsiteData/" + dataStoreID;
}

std::string websiteCacheDir(const std::string& dataStoreID) {
    return cacheHome() + "/Orvane/WebsiteData/" + dataStoreID;
}

std::string configDir() {
    std::string dir = configHome() + "/Orvane";
    Files::makeFolder(dir);
    return dir;
}

} // namespace orvane::AppPaths
