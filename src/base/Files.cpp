#include "base/Files.h"

#include "base/GRef.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvane::Files {

std::optional<std::string> read(const std::string& path, size_t maxBytes) {
    int fd = g_open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0);
    if (fd < 0)
        return std::nullopt;
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || static_cast<size_t>(st.st_size) > maxBytes) {
        close(fd);
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(static_cast<size_t>(st.st_size));
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            close(fd);
            return std::nullopt;
        }
        if (n == 0)
            break;
        if (bytes.size() + static_cast<size_t>(n) > maxBytes) {
            close(fd);
            return std::nullopt;
        }
        bytes.append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    return bytes;
}

bool replaceAtomically(const std::string& path, const std::string& bytes) {
    GCharPtr folder(g_path_get_dirname(path.c_str()));
    makeFolder(folder.get());
    return g_file_set_contents_full(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()),
        static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT | G_FILE_SET_CONTENTS_DURABLE),
        0600, nullptr);
}

void removeLeftoverTemporaries(const std::string& path) {
    GCharPtr folder(g_path_get_dirname(path.c_str()));
    GCharPtr base(g_path_get_basename(path.c_str()));
    std::string prefix = std::string(base.get()) + ".";
    GDir* dir = g_dir_open(folder.get(), 0, nullptr);
    if (!dir)
        return;
    while (const char* name = g_dir_read_name(dir)) {
        std::string entry(name);
        if (entry.size() != prefix.size() + 6 || entry.compare(0, prefix.size(), prefix) != 0)
            continue;
        bool temporary = true;
        for (size_t i = prefix.size(); i < entry.size(); ++i)
            temporary = temporary && g_ascii_isalnum(entry[i]);
        GCharPtr child(g_build_filename(folder.get(), name, nullptr));
        if (temporary && g_file_test(child.get(), G_FILE_TEST_IS_REGULAR) && !g_file_test(child.get(), G_FILE_TEST_IS_SYMLINK))
            g_unlink(child.get());
    }
    g_dir_close(dir);
}

bool makeFolder(const std::string& path) {
    return g_mkdir_with_parents(path.c_str(), 0700) == 0;
}

static bool removeRecursively(GFile* file) {
    GErrorPtr error;
    Ref<GFileEnumerator> children = adopt(g_file_enumerate_children(file, G_FILE_ATTRIBUTE_STANDARD_NAME "," G_FILE_ATTRIBUTE_STANDARD_TYPE,
        G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr));
    bool ok = true;
    if (children) {
        for (;;) {
            GFileInfo* info = nullptr;
            GFile* child = nullptr;
            if (!g_file_enumerator_iterate(children.get(), &info, &child, nullptr, nullptr) || !info)
                break;
            if (g_file_info_get_file_type(info) == G_FILE_TYPE_DIRECTORY)
                ok = removeRecursively(child) && ok;
            else
                ok = g_file_delete(child, nullptr, nullptr) && ok;
        }
    }
    if (!g_file_delete(file, nullptr, GErrorOut(error)))
        return g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_NOT_FOUND) && ok;
    return ok;
}

bool removeTree(const std::string& path) {
    Ref<GFile> file = adopt(g_file_new_for_path(path.c_str()));
    return removeRecursively(file.get());
}

bool exists(const std::string& path) {
    return g_file_test(path.c_str(), G_FILE_TEST_EXISTS);
}

} // namespace orvane::Files
