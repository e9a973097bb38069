#include "DownloadsFolder.h"

#include "Files.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <sys/stat.h>

namespace orvane::DownloadsFolder {

namespace {

bool isFolder(const std::string& path) {
    GStatBuf st {};
    return g_stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

} // namespace

std::string configuredPath() {
    // GLib reads user-dirs.dirs once; a folder changed while Orvane runs
    // (xdg-user-dirs-update) counts from the next save on.
    g_reload_user_special_dirs_cache();
    if (const char* configured = g_get_user_special_dir(G_USER_DIRECTORY_DOWNLOAD))
        return configured;
    return std::string(g_get_home_dir()) + "/Downloads";
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
