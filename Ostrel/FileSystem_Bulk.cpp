#include "Ostrel/FileSystem_Bulk.h"

#include <cerrno>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Ostrel/FileSystem_Paths.h"

namespace Ostrel {
namespace FileSystemDetail {

void AdviseHugePages(void* data, std::size_t size)
{
    const std::size_t huge = std::size_t(2) << 20;
    if (size < 4 * huge)
        return;
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(data) + huge - 1) & ~(huge - 1);
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(data) + size) & ~(huge - 1);
    if (end > begin)
        ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

bool ReadRegularFileQuiet(const char* path, std::size_t max_size, std::unique_ptr<char[]>& data,
                          std::size_t& size)
{
    std::string disk;
    if (path == nullptr || MapPathQuiet(path, disk) != MapResult::OK)
        return false;
    const int saved = errno;
    int fd;
    do {
        // Without blocking: a FIFO in the file's place must not hang the reader.
        fd = ::open(disk.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (fd < 0 && errno == EINTR);
    bool ok = false;
    struct stat st;
    if (fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 &&
        static_cast<unsigned long long>(st.st_size) <= max_size) {
        const std::size_t expected = static_cast<std::size_t>(st.st_size);
        // One byte more than the file claims, so that a file that grew meanwhile shows.
        data.reset(new char[expected + 1]);
        AdviseHugePages(data.get(), expected + 1);
        std::size_t have = 0;
        for (;;) {
            const ssize_t n = ::read(fd, data.get() + have, expected + 1 - have);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                ok = n == 0;
                break;
            }
            have += static_cast<std::size_t>(n);
            if (have > expected)
                break;
        }
        size = have;
    }
    if (fd >= 0)
        ::close(fd);
    errno = saved;
    return ok;
}

} // namespace FileSystemDetail
} // namespace Ostrel
