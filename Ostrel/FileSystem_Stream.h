#ifndef VELLUMENT_OSTREL_FILESYSTEM_STREAM_H
#define VELLUMENT_OSTREL_FILESYSTEM_STREAM_H

// Writing a file whose bytes are made piece by piece, replaced as WriteFileAtomic replaces one,
// without first holding all of it in memory. Not exported.

#include <cstddef>
#include <functional>
#include <memory>

namespace Ostrel {
namespace FileSystemDetail {

// Collects the bytes handed to it and writes them to the file in large pieces. After the first
// failure it takes no more; the writer of the file then fails with that error.
class FileStream {
public:
    explicit FileStream(int fd);
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    void write(const void* data, std::size_t size);
    // Writes what is left; false, with the thread's last error set, when any write failed.
    bool flush();

private:
    static constexpr std::size_t kCapacity = std::size_t(1) << 18;
    int fd_;
    std::unique_ptr<char[]> buffer_;
    std::size_t used_ = 0;
    int errno_ = 0;  // of the first failed write
};

// Writes a new file in the path's directory through `produce`, flushes it to disk and renames it
// over the path. When `produce` returns false, throws, or a write fails, the path keeps what it
// held and no temporary file remains. The thread's last error is set either way.
bool WriteFileAtomicStreamed(const char* path, const std::function<bool(FileStream&)>& produce);

} // namespace FileSystemDetail
} // namespace Ostrel

#endif
