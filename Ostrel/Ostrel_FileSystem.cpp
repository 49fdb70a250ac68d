#include <vellument/Ostrel_FileSystem.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/FileSystem_Bulk.h"
#include "Ostrel/FileSystem_Paths.h"
#include "Ostrel/FileSystem_Stream.h"

namespace Ostrel {

using namespace FileSystemDetail;

namespace {

// Windows' code for a file over a size limit; ReadFile reports it for a file above max_size.
const unsigned long kErrorFileTooLarge = 223;

// ---------------------------------------------------------------------------------------------
// Low-level I/O

bool WriteAll(int fd, const void* data, std::size_t size)
{
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = ::write(fd, p, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (n == 0) {
            errno = ENOSPC;
            return false;
        }
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

// Opens without blocking on a FIFO or device, then goes back to ordinary blocking I/O.
int OpenNoBlock(const std::string& path, int flags, mode_t mode = 0)
{
    int fd;
    do {
        fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0) {
        int fl = ::fcntl(fd, F_GETFL);
        if (fl >= 0)
            ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
    }
    return fd;
}

// Opens a regular file for reading; directories, pipes and devices are refused, since reading
// them could block or never end. -1 with the last error set on failure.
int OpenRegularForRead(const std::string& disk, struct stat& st)
{
    int fd = OpenNoBlock(disk, O_RDONLY);
    if (fd < 0) {
        SetErrorForPath(errno, disk);
        return -1;
    }
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        Error::SetLastError(Error::ACCESS_DENIED);
        return -1;
    }
    return fd;
}

void SyncDirectory(const std::string& dir)
{
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);  // some file systems refuse; the rename itself already happened
        ::close(fd);
    }
}

std::string RandomSuffix()
{
    static std::atomic<unsigned long long> counter{0};
    unsigned long long x = static_cast<unsigned long long>(
        std::chrono::high_resolution_clock::now().time_since_epoch().count());
    x ^= (static_cast<unsigned long long>(::getpid()) << 32);
    x ^= counter.fetch_add(1) * 0x9E3779B97F4A7C15ULL;
    x ^= reinterpret_cast<std::uintptr_t>(&x);
    // splitmix64 finaliser spreads the bits over the whole name
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    x ^= x >> 31;
    static const char alphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string s;
    for (int i = 0; i < 10; ++i) {
        s += alphabet[x % 36];
        x /= 36;
    }
    return s;
}

// A temporary file that removes itself unless it was put in place.
class TempFile {
public:
    ~TempFile()
    {
        if (fd_ >= 0)
            ::close(fd_);
        if (!path_.empty())
            ::unlink(path_.c_str());
    }
    // Creates the file in `dir`; the mode is 0666 less the umask, as for any new file.
    bool Create(const std::string& dir)
    {
        for (int attempt = 0; attempt < 100; ++attempt) {
            std::string candidate = JoinPath(dir, ".vlm-" + RandomSuffix() + ".tmp");
            int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd >= 0) {
                fd_ = fd;
                path_ = candidate;
                return true;
            }
            if (errno != EEXIST) {
                SetErrorForPath(errno, candidate);
                return false;
            }
        }
        Error::SetLastError(Error::FILE_EXISTS);
        return false;
    }
    int fd() const { return fd_; }
    const std::string& path() const { return path_; }
    // Flushes and closes; false with the last error set if the data may not be on disk.
    bool Finish()
    {
        if (::fsync(fd_) != 0 && errno != EINVAL) {
            Error::SetLastErrorFromErrno(errno);
            return false;
        }
        int rc = ::close(fd_);
        fd_ = -1;
        if (rc != 0 && errno != EINTR) {
            Error::SetLastErrorFromErrno(errno);
            return false;
        }
        return true;
    }
    void Release() { path_.clear(); }

private:
    int fd_ = -1;
    std::string path_;
};

// Writes a whole new file next to `target` through `fill` and puts it in the target's place in
// one step. On any failure the target is as it was and no temporary file remains.
bool ReplaceAtomically(const std::string& target_in, const std::function<bool(int)>& fill, bool fail_if_exists)
{
    std::string target = target_in;
    while (target.size() > 1 && target.back() == '/')
        target.pop_back();

    struct stat lst;
    bool exists = ::lstat(target.c_str(), &lst) == 0;
    if (exists && S_ISLNK(lst.st_mode)) {
        // Replace the file the link points at, and keep the link.
        if (char* real = ::realpath(target.c_str(), nullptr)) {
            target = real;
            std::free(real);
            exists = ::lstat(target.c_str(), &lst) == 0;
        }
    }
    if (exists && S_ISDIR(lst.st_mode)) {
        Error::SetLastError(Error::ACCESS_DENIED);
        return false;
    }
    if (exists && fail_if_exists) {
        Error::SetLastError(Error::FILE_EXISTS);
        return false;
    }

    const std::string dir = ParentOf(target);
    TempFile temp;
    if (!temp.Create(dir))
        return false;
    if (!fill(temp.fd()))
        return false;
    struct stat st;
    if (exists && ::stat(target.c_str(), &st) == 0) {
        ::fchmod(temp.fd(), st.st_mode & 07777);
        if (st.st_uid != ::geteuid() || st.st_gid != ::getegid()) {
            if (::fchown(temp.fd(), st.st_uid, st.st_gid) != 0) {
                // Only a privileged process may give a file away; the data matters more.
            }
        }
    }
    if (!temp.Finish())
        return false;

    if (fail_if_exists) {
        // link() refuses an existing target atomically, so a file made meanwhile is never lost.
        if (::link(temp.path().c_str(), target.c_str()) == 0) {
            // the temporary name goes away with `temp`
        } else if (errno == EEXIST) {
            Error::SetLastError(Error::FILE_EXISTS);
            return false;
        } else if (errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS || errno == EMLINK) {
            // a file system without hard links
            if (Exists(target)) {
                Error::SetLastError(Error::FILE_EXISTS);
                return false;
            }
            if (::rename(temp.path().c_str(), target.c_str()) != 0) {
                SetErrorForPath(errno, target);
                return false;
            }
            temp.Release();
        } else {
            SetErrorForPath(errno, target);
            return false;
        }
    } else {
        if (::rename(temp.path().c_str(), target.c_str()) != 0) {
            SetErrorForPath(errno, target);
            return false;
        }
        temp.Release();
    }
    SyncDirectory(dir);
    Error::SetLastError(Error::SUCCESS);
    return true;
}

// Makes a directory and its missing parents; 0 or an errno value.
int MakeDirectories(const std::string& path, mode_t mode)
{
    if (path.empty())
        return ENOENT;
    std::size_t pos = 0;
    while (true) {
        pos = path.find('/', pos + 1);
        std::string prefix = path.substr(0, pos);
        bool last = pos == std::string::npos || path.find_first_not_of('/', pos) == std::string::npos;
        if (!prefix.empty() && prefix != "/") {
            if (::mkdir(prefix.c_str(), mode) != 0) {
                int err = errno;
                struct stat st;
                if (::stat(prefix.c_str(), &st) == 0) {
                    if (!S_ISDIR(st.st_mode))
                        return last ? EEXIST : ENOTDIR;
                } else if (err != EEXIST) {
                    return err;
                } else {
                    return ENOTDIR;  // a dangling link in the way
                }
            }
        }
        if (last)
            return 0;
    }
}

} // namespace

// ---------------------------------------------------------------------------------------------

namespace FileSystemDetail {

std::string LocalAppDataDiskPath(bool create)
{
    std::string dir;
    const char* override_dir = std::getenv("VELLUMENT_APPDATA");
    if (override_dir != nullptr && *override_dir != '\0') {
        if (MapPathQuiet(override_dir, dir) != MapResult::OK)
            dir = override_dir;
    } else {
        const char* xdg = std::getenv("XDG_DATA_HOME");
        if (xdg != nullptr && xdg[0] == '/') {
            dir = xdg;
        } else {
            const char* home = std::getenv("HOME");
            std::string home_dir = (home != nullptr && home[0] == '/') ? home : "";
            if (home_dir.empty()) {
                struct passwd pw;
                struct passwd* result = nullptr;
                std::vector<char> buffer(16384);
                if (::getpwuid_r(::getuid(), &pw, buffer.data(), buffer.size(), &result) == 0 && result != nullptr
                    && result->pw_dir != nullptr && result->pw_dir[0] == '/')
                    home_dir = result->pw_dir;
            }
            dir = home_dir.empty() ? std::string("/tmp") : home_dir;
            dir = JoinPath(dir, ".local/share");
        }
        dir = JoinPath(dir, "Ostrel");
    }
    if (!dir.empty() && dir[0] != '/') {
        char cwd[4096];
        if (::getcwd(cwd, sizeof cwd) != nullptr)
            dir = JoinPath(cwd, dir);
    }
    dir = TrimTrailingSlashes(dir);
    if (create) {
        // The log and the settings may hold payroll details: keep the folder private.
        MakeDirectories(dir, 0700);
    }
    return dir;
}

} // namespace FileSystemDetail

namespace {

// Maps path and reads its attributes; on failure the last error says why.
bool StatForOperation(const char* path, struct stat& st)
{
    std::string disk;
    if (!MapForOperation(path, disk))
        return false;
    if (::stat(disk.c_str(), &st) != 0) {
        SetErrorForPath(errno, disk);
        return false;
    }
    return true;
}

} // namespace

bool FileSystem::GetFileExists(const char* path)
{
    struct stat st;
    if (!StatForOperation(path, st))
        return false;
    if (!S_ISREG(st.st_mode)) {
        Error::SetLastError(Error::FILE_NOT_FOUND);
        return false;
    }
    Error::SetLastError(Error::SUCCESS);
    return true;
}

namespace {

// Copies the rest of `in` to `out` with read and write; false with errno set on failure.
bool CopyByReading(int in, int out)
{
    std::vector<char> buffer(1 << 16);
    while (true) {
        ssize_t n = ::read(in, buffer.data(), buffer.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (n == 0)
            return true;
        if (!WriteAll(out, buffer.data(), static_cast<std::size_t>(n)))
            return false;
    }
}

// Copies `in` to `out` inside the kernel, without the bytes passing through this process; where
// the kernel can't (another file system, an old kernel), by reading and writing. Both go on from
// the descriptors' offsets, so a fall-back after part of the copy continues where it stopped.
bool CopyContents(int in, int out)
{
    const std::size_t kPiece = std::size_t(1) << 30;
    while (true) {
        ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, kPiece, 0);
        if (n > 0)
            continue;
        if (n < 0 && errno == EINTR)
            continue;
        // 0 is the end, or a file the kernel can't copy this way that claims to be empty (a
        // /proc file): reading tells which. Any failure leaves the reading way to say why.
        return CopyByReading(in, out);
    }
}

} // namespace

bool FileSystem::CopyFileA(const char* source, const char* target, bool fail_if_exists)
{
    std::string from, to;
    if (!MapForOperation(source, from) || !MapForOperation(target, to))
        return false;
    struct stat st;
    int in = OpenRegularForRead(from, st);
    if (in < 0)
        return false;
    bool ok = ReplaceAtomically(
        to,
        [in](int out) {
            if (!CopyContents(in, out)) {
                Error::SetLastErrorFromErrno(errno);
                return false;
            }
            return true;
        },
        fail_if_exists);
    ::close(in);
    return ok;
}

std::string FileSystem::GetOstrelLocalAppDataDirectory()
{
    std::string disk = FileSystemDetail::LocalAppDataDiskPath(true);
    if (IsDirectory(disk))
        Error::SetLastError(Error::SUCCESS);
    else
        Error::SetLastError(Error::PATH_NOT_FOUND);
    std::string windows = ToWindowsPath(disk.c_str());
    if (windows.empty() || windows.back() != '\\')
        windows += '\\';
    return windows;
}

bool FileSystem::GetStatus(const char* path)
{
    struct stat st;
    if (!StatForOperation(path, st))
        return false;
    Error::SetLastError(Error::SUCCESS);
    return true;
}

int FileSystem::Rename(const char* old_path, const char* new_path)
{
    std::string from, to;
    if (!MapForOperation(old_path, from) || !MapForOperation(new_path, to))
        return -1;
    struct stat st;
    if (::lstat(from.c_str(), &st) != 0) {
        SetErrorForPath(errno, from);
        return -1;
    }
    // A rename never replaces an existing file: that is how the library's platform behaves, and
    // a caller relies on it failing rather than losing the file in the way.
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        Error::SetLastError(Error::SUCCESS);
        return 0;
    }
    int err = errno;
    if (err == EINVAL || err == ENOSYS || err == EOPNOTSUPP) {
        // The file system can't refuse atomically; check first.
        if (Exists(to)) {
            Error::SetLastError(Error::ALREADY_EXISTS);
            return -1;
        }
        if (::rename(from.c_str(), to.c_str()) == 0) {
            Error::SetLastError(Error::SUCCESS);
            return 0;
        }
        err = errno;
    }
    if (err == EEXIST || err == ENOTEMPTY)
        Error::SetLastError(Error::ALREADY_EXISTS);
    else
        SetErrorForPath(err, to);
    return -1;
}

namespace {

// The disk path a write of `size` bytes at `data` goes to; false (last error set) for no data.
bool MapForWrite(const char* path, const void* data, std::size_t size, std::string& disk)
{
    if (data == nullptr && size > 0) {
        Error::SetLastError(Error::INVALID_PARAMETER);
        return false;
    }
    return MapForOperation(path, disk);
}

} // namespace

bool FileSystem::WriteBinaryFile(const char* path, const void* data, std::size_t size)
{
    std::string disk;
    if (!MapForWrite(path, data, size, disk))
        return false;
    int fd = OpenNoBlock(disk, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) {
        SetErrorForPath(errno, disk);
        return false;
    }
    if (size > 0 && !WriteAll(fd, data, size)) {
        Error::SetLastErrorFromErrno(errno);
        ::close(fd);
        return false;
    }
    if (::close(fd) != 0 && errno != EINTR) {
        Error::SetLastErrorFromErrno(errno);
        return false;
    }
    Error::SetLastError(Error::SUCCESS);
    return true;
}

bool FileSystem::WriteFileAtomic(const char* path, const void* data, std::size_t size)
{
    std::string disk;
    if (!MapForWrite(path, data, size, disk))
        return false;
    return ReplaceAtomically(
        disk,
        [data, size](int fd) {
            if (size > 0 && !WriteAll(fd, data, size)) {
                Error::SetLastErrorFromErrno(errno);
                return false;
            }
            return true;
        },
        false);
}

namespace FileSystemDetail {

FileStream::FileStream(int fd) : fd_(fd), buffer_(new char[kCapacity]) {}

void FileStream::write(const void* data, std::size_t size)
{
    if (errno_ != 0)
        return;
    if (used_ + size > kCapacity) {
        if (!flush())
            return;
        if (size >= kCapacity) {
            if (!WriteAll(fd_, data, size))
                errno_ = errno;
            return;
        }
    }
    std::memcpy(buffer_.get() + used_, data, size);
    used_ += size;
}

bool FileStream::flush()
{
    if (errno_ == 0 && used_ > 0 && !WriteAll(fd_, buffer_.get(), used_))
        errno_ = errno;
    used_ = 0;
    if (errno_ != 0) {
        Error::SetLastErrorFromErrno(errno_);
        return false;
    }
    return true;
}

bool WriteFileAtomicStreamed(const char* path, const std::function<bool(FileStream&)>& produce)
{
    std::string disk;
    if (!MapForOperation(path, disk))
        return false;
    return ReplaceAtomically(
        disk,
        [&produce](int fd) {
            FileStream stream(fd);
            const bool produced = produce(stream);
            if (!stream.flush())
                return false;
            if (!produced)
                Error::SetLastError(Error::WRITE_FAULT);
            return produced;
        },
        false);
}

} // namespace FileSystemDetail

bool FileSystem::ReadFile(const char* path, std::string& contents, std::size_t max_size)
{
    contents.clear();
    std::string disk;
    if (!MapForOperation(path, disk))
        return false;
    struct stat st;
    int fd = OpenRegularForRead(disk, st);
    if (fd < 0)
        return false;
    if (st.st_size > 0 && static_cast<unsigned long long>(st.st_size) > max_size) {
        ::close(fd);
        Error::SetLastError(kErrorFileTooLarge);
        return false;
    }
    std::string data;
    try {
        // One allocation of the size the file claims, filled a cache-sized step at a time so that
        // the string's zeroing of a step is still in cache when the read overwrites it. Past the
        // claimed size (a file that grows, a /proc file that claims 0) reads go through a small
        // buffer, so that the string grows only by what really came.
        const std::size_t step = std::size_t(1) << 17;
        const std::size_t expected = st.st_size > 0 ? static_cast<std::size_t>(st.st_size) : 0;
        data.reserve(expected);
        FileSystemDetail::AdviseHugePages(&data[0], data.capacity());
        std::size_t have = 0;
        while (true) {
            char probe[4096];
            const bool inside = have < expected;
            if (inside)
                data.resize(have + std::min(step, expected - have));
            char* into = inside ? &data[have] : probe;
            const std::size_t room = inside ? data.size() - have : sizeof probe;
            ssize_t n = ::read(fd, into, room);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                Error::SetLastErrorFromErrno(errno);
                ::close(fd);
                return false;
            }
            if (n == 0)
                break;
            const std::size_t got = static_cast<std::size_t>(n);
            if (inside)
                data.resize(have + got);
            else
                data.append(probe, got);
            have += got;
            if (have > max_size) {
                Error::SetLastError(kErrorFileTooLarge);
                ::close(fd);
                return false;
            }
        }
    } catch (...) {
        Error::SetLastError(Error::NOT_ENOUGH_MEMORY);
        ::close(fd);
        return false;
    }
    ::close(fd);
    contents.swap(data);
    Error::SetLastError(Error::SUCCESS);
    return true;
}

bool FileSystem::DeleteFileA(const char* path)
{
    std::string disk;
    if (!MapForOperation(path, disk))
        return false;
    if (::unlink(disk.c_str()) != 0) {
        SetErrorForPath(errno, disk);
        return false;
    }
    Error::SetLastError(Error::SUCCESS);
    return true;
}

bool FileSystem::CreateDirectoryA(const char* path)
{
    std::string disk;
    if (!MapForOperation(path, disk))
        return false;
    int err = MakeDirectories(disk, 0777);
    if (err == 0) {
        Error::SetLastError(Error::SUCCESS);
        return true;
    }
    if (err == EEXIST)
        Error::SetLastError(Error::ALREADY_EXISTS);
    else if (err == ENOTDIR || err == ENOENT)
        Error::SetLastError(Error::PATH_NOT_FOUND);
    else
        Error::SetLastErrorFromErrno(err);
    return false;
}

std::FILE* FileSystem::OpenFile(const char* path, const char* mode)
{
    if (mode == nullptr || *mode == '\0') {
        Error::SetLastError(Error::INVALID_PARAMETER);
        return nullptr;
    }
    std::string disk;
    if (!MapForOperation(path, disk))
        return nullptr;
    std::FILE* f = std::fopen(disk.c_str(), mode);
    if (f == nullptr) {
        SetErrorForPath(errno, disk);
        return nullptr;
    }
    Error::SetLastError(Error::SUCCESS);
    return f;
}

std::FILE* FileSystem::OpenRegularFileForRead(const char* path)
{
    std::string disk;
    if (!MapForOperation(path, disk))
        return nullptr;
    struct stat st;
    const int fd = OpenRegularForRead(disk, st);
    if (fd < 0)
        return nullptr;
    std::FILE* f = ::fdopen(fd, "rb");
    if (f == nullptr) {
        Error::SetLastErrorFromErrno(errno);
        ::close(fd);
        return nullptr;
    }
    Error::SetLastError(Error::SUCCESS);
    return f;
}

} // namespace Ostrel
