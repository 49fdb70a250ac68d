#ifndef VELLUMENT_OSTREL_FILESYSTEM_H
#define VELLUMENT_OSTREL_FILESYSTEM_H

// File access for the library. Paths in the data and the API are in Windows form; this layer
// alone maps them to the disk:
//  - a backslash is a separator; a leading backslash is the root;
//  - a drive letter maps through the drive table (Z: is "/"; others from VELLUMENT_DRIVES,
//    "C=/srv/c;D=/mnt/d", or from SetDrive);
//  - a component that doesn't exist as written is matched without regard to ASCII case;
//    a component that matches nothing keeps its name as given (new files and folders);
//  - a path with neither a backslash nor a drive letter is a plain POSIX path, taken as it stands.
// Every operation leaves the calling thread's last error (Ostrel::Error) set.

#include <cstddef>
#include <cstdio>
#include <string>

#include <vellument/export.h>

namespace Ostrel {

class VELLUMENT_API FileSystem {
public:
    // True if the path names an existing regular file.
    static bool GetFileExists(const char* path);
    // Copies a file; with fail_if_exists false an existing target is overwritten. The target is
    // replaced atomically: it is either the old file or the whole new one.
    static bool CopyFileA(const char* source, const char* target, bool fail_if_exists);
    // The application family's folder in the user's local application data, in Windows form,
    // ending in a backslash; made if missing. VELLUMENT_APPDATA overrides it.
    static std::string GetOstrelLocalAppDataDirectory();
    // The directory part of a path, with its trailing separator ("" when there is none).
    static std::string GetDirectory(const char* path);
    // The last component of a path, with its extension.
    static std::string GetFileName(const char* path);

    // True if the path exists, file or directory (a status query).
    static bool GetStatus(const char* path);
    // Renames a file; 0 on success, -1 on failure, as rename() does.
    static int Rename(const char* old_path, const char* new_path);
    // Writes bytes to a file, creating or truncating it.
    static bool WriteBinaryFile(const char* path, const void* data, std::size_t size);
    // Writes bytes to a temporary file in the same directory, flushes it to disk and renames it
    // over the path: a crash or a full disk never leaves a partial file where a good one stood.
    static bool WriteFileAtomic(const char* path, const void* data, std::size_t size);
    // Reads a whole file; false if it can't be opened or read, or is larger than max_size.
    static bool ReadFile(const char* path, std::string& contents, std::size_t max_size = static_cast<std::size_t>(-1));
    static bool DeleteFileA(const char* path);
    // Makes a directory and any missing parents.
    static bool CreateDirectoryA(const char* path);
    // fopen on the mapped path.
    static std::FILE* OpenFile(const char* path, const char* mode);
    // A regular file opened for reading in binary; null for anything else (a directory, a FIFO,
    // a device), which could block or never end, with the last error set.
    static std::FILE* OpenRegularFileForRead(const char* path);

    // The disk path of a library path.
    static std::string MapPath(const char* path);
    // The Windows form of a disk path: under the longest matching drive root, else under Z:.
    static std::string ToWindowsPath(const char* disk_path);
    // Maps a drive letter to a directory on disk; a null or empty root removes the letter.
    static void SetDrive(char letter, const char* root);
};

} // namespace Ostrel

#endif
