#ifndef VELLUMENT_OSTREL_FILESYSTEM_PATHS_H
#define VELLUMENT_OSTREL_FILESYSTEM_PATHS_H

// Helpers of the file-system layer that its files and other parts of the platform code share;
// not exported.

#include <string>

namespace Ostrel {
namespace FileSystemDetail {

// The disk path of the application family's local data folder, without a trailing slash.
// Made if missing when `create` is set. Leaves the thread's last error alone.
std::string LocalAppDataDiskPath(bool create);

// Drops trailing slashes, except from the root itself.
std::string TrimTrailingSlashes(std::string root);

bool Exists(const std::string& path);  // lstat: a dangling link exists
bool IsDirectory(const std::string& path);
std::string JoinPath(const std::string& dir, const std::string& name);
std::string ParentOf(const std::string& disk_path);

enum class MapResult { OK, NULL_PATH, UNKNOWN_DRIVE };

// Maps a library path to the disk. Does not touch the thread's last error.
MapResult MapPathQuiet(const char* path, std::string& out);

// Maps a path for an operation, setting the last error when it can't be mapped.
bool MapForOperation(const char* path, std::string& out);

// Sets the last error for an errno from an operation on `disk_path`: a missing file is 2, a
// missing directory on the way to it is 3.
void SetErrorForPath(int err, const std::string& disk_path);

} // namespace FileSystemDetail
} // namespace Ostrel

#endif
