#include "UniqueFile.h"

#include "FileNames.h"

#include <glib.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace orvane {

namespace {

constexpr int kCreateFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;

class FolderHandle {
public:
    explicit FolderHandle(const std::string& folder)
        : m_fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) { }
    ~FolderHandle() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FolderHandle(const FolderHandle&) = delete;
    FolderHandle& operator=(const FolderHandle&) = delete;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

enum class Outcome { Made, Taken, Failed };

Outcome makeOne(int folderFD, const std::string& name, int& fd, struct stat& made) {
    fd = openat(folderFD, name.c_str(), kCreateFlags, 0666);
    if (fd < 0)
        return errno == EEXIST ? Outcome::Taken : Outcome::Failed;
    if (fstat(fd, &made) != 0) {
        ::close(fd);
        unlinkat(folderFD, name.c_str(), 0);
        return Outcome::Failed;
    }
    return Outcome::Made;
}

std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() || folder.back() != '/' ? folder + "/" + name : folder + name;
}

} // namespace

UniqueFile::UniqueFile(int fd, Identity file)
    : m_fd(fd), m_file(std::move(file)) { }

UniqueFile::UniqueFile(UniqueFile&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_file(std::move(other.m_file)) { }

UniqueFile& UniqueFile::operator=(UniqueFile&& other) noexcept {
    if (this != &other) {
        close();
        m_fd = std::exchange(other.m_fd, -1);
        m_file = std::move(other.m_file);
    }
    return *this;
}

UniqueFile::~UniqueFile() { close(); }

std::optional<UniqueFile> UniqueFile::create(const std::string& folder, std::string_view suggestedName,
    std::string_view fallback, std::string_view siblingSuffix) {
    FolderHandle handle(folder);
    if (handle.fd() < 0)
        return std::nullopt;
    // The sibling's name must fit too.
    size_t maxBytes = FileNames::kMaxNameBytes - std::min(siblingSuffix.size(), FileNames::kMaxNameBytes / 2);
    std::string name = FileNames::sanitized(suggestedName, fallback, maxBytes);
    FileNames::Parts parts = FileNames::split(name);

    for (unsigned attempt = 0; attempt < kMaxAttempts; ++attempt) {
        std::string candidate = attempt == 0 ? name : FileNames::numbered(parts, attempt, maxBytes);
        if (!siblingSuffix.empty()) {
            struct stat sibling {};
            std::string siblingName = candidate + std::string(siblingSuffix);
            if (fstatat(handle.fd(), siblingName.c_str(), &sibling, AT_SYMLINK_NOFOLLOW) == 0)
                continue;
            if (errno != ENOENT)
                return std::nullopt;
        }
        int fd = -1;
        struct stat made {};
        Outcome outcome = makeOne(handle.fd(), candidate, fd, made);
        if (outcome == Outcome::Taken)
            continue;
        if (outcome == Outcome::Failed)
            return std::nullopt;
        return UniqueFile(fd, Identity { joined(folder, candidate), made.st_dev, made.st_ino });
    }
    return std::nullopt;
}

bool UniqueFile::write(std::string_view bytes) {
    if (m_fd < 0)
        return false;
    size_t written = 0;
    int error = 0;
    while (written < bytes.size()) {
        ssize_t n = ::write(m_fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            error = n < 0 ? errno : ENOSPC;
            break;
        }
        written += static_cast<size_t>(n);
    }
    if (::close(std::exchange(m_fd, -1)) != 0 && !error)
        error = errno;
    if (written == bytes.size() && !error)
        return true;
    g_warning("Could not write %s, which is removed: %s", m_file.path.c_str(), g_strerror(error));
    unlink(m_file.path.c_str());
    return false;
}

void UniqueFile::close() {
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
}

bool UniqueFile::removeIfUntouched(const Identity& identity) {
    struct stat now {};
    if (lstat(identity.path.c_str(), &now) != 0)
        return false;
    if (!S_ISREG(now.st_mode) || now.st_dev != identity.device || now.st_ino != identity.inode || now.st_size != 0)
        return false;
    return unlink(identity.path.c_str()) == 0;
}

} // namespace orvane
