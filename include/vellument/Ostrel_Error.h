#ifndef VELLUMENT_OSTREL_ERROR_H
#define VELLUMENT_OSTREL_ERROR_H

#include <string>

#include <vellument/export.h>

namespace Ostrel {

// The system's last error, kept per thread with the Windows error numbers that the library tests.
class VELLUMENT_API Error {
public:
    enum Level { LEVEL_DEFAULT = 0 };

    enum Code : unsigned long {
        SUCCESS = 0,
        FILE_NOT_FOUND = 2,
        PATH_NOT_FOUND = 3,
        ACCESS_DENIED = 5,
        INVALID_HANDLE = 6,
        NOT_ENOUGH_MEMORY = 8,
        WRITE_FAULT = 29,
        READ_FAULT = 30,
        GEN_FAILURE = 31,
        SHARING_VIOLATION = 32,
        HANDLE_DISK_FULL = 39,
        FILE_EXISTS = 80,
        INVALID_PARAMETER = 87,
        DISK_FULL = 112,
        INVALID_NAME = 123,
        ALREADY_EXISTS = 183,
        FILENAME_EXCED_RANGE = 206,
    };

    // Writes the text of the calling thread's last error to the log.
    static void LogSystemError(Level level);

    static unsigned long GetLastError();
    static void SetLastError(unsigned long code);
    // Sets the last error from a C errno value.
    static void SetLastErrorFromErrno(int err);
    static unsigned long FromErrno(int err);
    // A short text for an error number.
    static std::string GetErrorText(unsigned long code);
};

} // namespace Ostrel

#endif
