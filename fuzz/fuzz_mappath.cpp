// Arbitrary bytes as a path: mapping to the disk and back, and the pure string helpers,
// must neither crash nor loop, whatever the path holds.
#include <cstddef>
#include <cstdint>
#include <string>

#include <vellument/Ostrel_FileSystem.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string path(reinterpret_cast<const char*>(data), size);
    path = path.c_str();  // the API takes zero-terminated text
    std::string disk = Ostrel::FileSystem::MapPath(path.c_str());
    std::string back = Ostrel::FileSystem::ToWindowsPath(disk.c_str());
    (void)Ostrel::FileSystem::GetDirectory(path.c_str());
    (void)Ostrel::FileSystem::GetFileName(path.c_str());
    (void)Ostrel::FileSystem::GetStatus(path.c_str());
    (void)back;
    return 0;
}
