#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// A file made new, directly inside a folder, under a name nobody else holds.
// The name is the sanitised suggestion (FileNames::sanitized); while it is
// taken, "base 1.ext", "base 2.ext", ... are tried. Every try is an exclusive
// create that never follows a symbolic link (O_CREAT | O_EXCL | O_NOFOLLOW),
// so an existing file is never opened, let alone overwritten, and two callers
// racing for one name (threads or processes) each get a file of their own.
class UniqueFile {
public:
    // Where a made file is, and which file it was: removeIfUntouched() only
    // removes that same file, still empty.
    struct Identity {
        std::string path;
        dev_t device = 0;
        ino_t inode = 0;
    };

    // Makes the file, empty and open for writing. With a sibling suffix, a
    // name also counts as taken while something named like it plus the suffix
    // exists (a partial download of that name, or a link planted there).
    // Nothing when the folder cannot be opened, a create fails for another
    // reason than the name being taken, or no free name is found.
    static std::optional<UniqueFile> create(const std::string& folder, std::string_view suggestedName,
        std::string_view fallback, std::string_view siblingSuffix = {});

    UniqueFile(UniqueFile&& other) noexcept;
    UniqueFile& operator=(UniqueFile&& other) noexcept;
    UniqueFile(const UniqueFile&) = delete;
    UniqueFile& operator=(const UniqueFile&) = delete;
    ~UniqueFile();

    const std::string& path() const { return m_file.path; }
    const Identity& identity() const { return m_file; }

    // Writes all the bytes and closes the file. False (and the file removed)
    // when the write fails.
    bool write(std::string_view bytes);
    // Closes the file, leaving it in place.
    void close();

    // Removes the file when it is still the regular, empty file that was made.
    static bool removeIfUntouched(const Identity& identity);

    // How many names are tried before giving up.
    static constexpr unsigned kMaxAttempts = 10000;

private:
    UniqueFile(int fd, Identity file);

    int m_fd = -1;
    Identity m_file;
};

} // namespace orvane
