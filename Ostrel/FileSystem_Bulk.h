#ifndef VELLUMENT_OSTREL_FILESYSTEM_BULK_H
#define VELLUMENT_OSTREL_FILESYSTEM_BULK_H

// Large blocks of memory filled once from start to end, and whole files read into them, without
// zero-filling first and with as few page faults as the system allows. Not exported.

#include <cstddef>
#include <memory>

namespace Ostrel {
namespace FileSystemDetail {

// Asks for huge pages under a large block: it then takes a fraction of the faults.
void AdviseHugePages(void* data, std::size_t size);

// The bytes of the regular file at the library path, read once. False when the file can't be read
// whole, is empty, or is larger than max_size. Neither the thread's last error nor errno change:
// a caller that falls back to another reader lets that one tell why.
bool ReadRegularFileQuiet(const char* path, std::size_t max_size, std::unique_ptr<char[]>& data,
                          std::size_t& size);

} // namespace FileSystemDetail
} // namespace Ostrel

#endif
