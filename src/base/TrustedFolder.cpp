#include "TrustedFolder.h"

#include "GRef.h"

#include <glib.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace orvane::TrustedFolder {

namespace {

bool ownerIsTrusted(const struct stat& info) {
    return info.st_uid == geteuid() || info.st_uid == 0;
}

bool othersMayWrite(const struct stat& info) {
    return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// The folder itself and what it holds: nobody else may write.
std::optional<std::string> problemInside(const std::string& folder) {
    GDir* dir = g_dir_open(folder.c_str(), 0, nullptr);
    if (!dir)
        return "it cannot be read";
    std::optional<std::string> problem;
    while (const char* name = g_dir_read_name(dir)) {
        std::string path = folder + "/" + name;
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0 || S_ISLNK(info.st_mode))
            problem = path + " is a symbolic link or cannot be read";
        else if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode))
            problem = path + " is not a regular file";
        else if (!ownerIsTrusted(info) || othersMayWrite(info))
            problem = path + " may be changed by another user";
        if (problem)
            break;
    }
    g_dir_close(dir);
    return problem;
}

} // namespace

std::optional<std::string> problem(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (!resolved)
        return path + " does not exist";
    std::string folder(resolved);
    free(resolved);

    struct stat info {};
    if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return folder + " is not a folder";
    if (!ownerIsTrusted(info) || othersMayWrite(info))
        return folder + " may be changed by another user";
    // Whoever may rename a folder above it may put another in its place.
    for (std::string above = folder; above != "/";) {
        GCharPtr parent(g_path_get_dirname(above.c_str()));
        above = parent.get();
        struct stat aboveInfo {};
        if (stat(above.c_str(), &aboveInfo) != 0)
            return above + " cannot be read";
        if (!ownerIsTrusted(aboveInfo) || (othersMayWrite(aboveInfo) && !(aboveInfo.st_mode & S_ISVTX)))
            return above + " may be changed by another user";
    }
    if (auto inside = problemInside(folder))
        return inside;
    return std::nullopt;
}

} // namespace orvane::TrustedFolder
