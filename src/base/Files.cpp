#include "Files.h"

#include "FileNames.h"
#include "GRef.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <algorithm>
#include <tuple>
#include <vector>

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
    GErrorPtr error;
    if (g_file_set_contents_full(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()),
            static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT | G_FILE_SET_CONTENTS_DURABLE),
            0600, GErrorOut(error)))
        return true;
    g_warning("Could not replace %s, which stays as it was: %s", path.c_str(), error ? error->message : "?");
    return false;
}

namespace {

// A copy made by keepAside: "<prefix><stamp>" or "<prefix><stamp>-<counter>",
// the stamp as 20261123T174512Z; the first copy of a stamp counts as 1.
struct KeptCopy {
    std::string stamp;
    unsigned long counter = 1;
    std::string name;

    static std::optional<KeptCopy> parse(std::string_view name, std::string_view prefix) {
        auto digits = [](std::string_view text) {
            return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return g_ascii_isdigit(c); });
        };
        if (!name.starts_with(prefix))
            return std::nullopt;
        std::string_view rest = name.substr(prefix.size());
        if (rest.size() < 16 || !digits(rest.substr(0, 8)) || rest[8] != 'T' || !digits(rest.substr(9, 6)) || rest[15] != 'Z')
            return std::nullopt;
        KeptCopy copy { std::string(rest.substr(0, 16)), 1, std::string(name) };
        if (rest.size() > 16) {
            std::string_view counter = rest.substr(17);
            if (rest[16] != '-' || !digits(counter) || counter.size() > 9)
                return std::nullopt;
            copy.counter = std::stoul(std::string(counter));
        }
        return copy;
    }
    bool operator>(const KeptCopy& other) const { return std::tie(stamp, counter) > std::tie(other.stamp, other.counter); }
};

} // namespace

std::optional<std::string> keepAside(const std::string& path, const std::string& tag, size_t keep) {
    GStatBuf st {};
    if (g_lstat(path.c_str(), &st) != 0)
        return std::nullopt;
    GCharPtr folder(g_path_get_dirname(path.c_str()));
    const std::string prefix = GCharPtr(g_path_get_basename(path.c_str())).get() + ("." + tag + "-");
    std::vector<KeptCopy> copies;
    if (GDir* dir = g_dir_open(folder.get(), 0, nullptr)) {
        while (const char* name = g_dir_read_name(dir))
            if (auto copy = KeptCopy::parse(name, prefix))
                copies.push_back(std::move(*copy));
        g_dir_close(dir);
    }
    std::sort(copies.begin(), copies.end(), std::greater<>());

    // Within one second, counters go up and are never reused, so that the
    // names keep their order after older copies are removed.
    GDateTime* now = g_date_time_new_now_utc();
    KeptCopy kept { GCharPtr(g_date_time_format(now, "%Y%m%dT%H%M%SZ")).get(), 1, {} };
    g_date_time_unref(now);
    for (const KeptCopy& copy : copies)
        if (copy.stamp == kept.stamp)
            kept.counter = std::max(kept.counter, copy.counter + 1);
    kept.name = prefix + kept.stamp + (kept.counter > 1 ? "-" + std::to_string(kept.counter) : "");
    std::string keptPath = std::string(folder.get()) + "/" + kept.name;
    if (g_lstat(keptPath.c_str(), &st) == 0 || g_rename(path.c_str(), keptPath.c_str()) != 0)
        return std::nullopt;

    // The new copy always stays, even when a clock set back gives it an older name.
    for (size_t i = keep > 0 ? keep - 1 : 0; i < copies.size(); ++i)
        removeFile(folder.get(), copies[i].name);
    return keptPath;
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
    // Enumerating a link would list (and delete) what it points to.
    if (g_file_query_file_type(file.get(), G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr) != G_FILE_TYPE_DIRECTORY) {
        GErrorPtr error;
        return g_file_delete(file.get(), nullptr, GErrorOut(error))
            || g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_NOT_FOUND);
    }
    return removeRecursively(file.get());
}

bool removeFile(const std::string& folder, std::string_view name) {
    if (!FileNames::isPlainName(name))
        return false;
    int dir = g_open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (dir < 0)
        return false;
    std::string child(name);
    struct stat st {};
    bool removed = fstatat(dir, child.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode)
        && unlinkat(dir, child.c_str(), 0) == 0;
    close(dir);
    return removed;
}

bool exists(const std::string& path) {
    return g_file_test(path.c_str(), G_FILE_TEST_EXISTS);
}

std::vector<std::string> names(const std::string& folder) {
    std::vector<std::string> found;
    if (GDir* dir = g_dir_open(folder.c_str(), 0, nullptr)) {
        while (const char* name = g_dir_read_name(dir))
            found.emplace_back(name);
        g_dir_close(dir);
    }
    return found;
}

} // namespace orvane::Files
