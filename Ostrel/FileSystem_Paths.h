#ifndef VELLUMENT_OSTREL_FILESYSTEM_PATHS_H
#define VELLUMENT_OSTREL_FILESYSTEM_PATHS_H

// Helpers of the file-system layer that other parts of the platform code share; not exported.

#include <string>

namespace Ostrel {
namespace FileSystemDetail {

// The disk path of the application family's local data folder, without a trailing slash.
// Made if missing when `create` is set. Leaves the thread's last error alone.
std::string LocalAppDataDiskPath(bool create);

} // namespace FileSystemDetail
} // namespace Ostrel

#endif
