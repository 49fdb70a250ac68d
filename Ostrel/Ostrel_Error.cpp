#include <vellument/Ostrel_Error.h>

#include <cerrno>

#include <vellument/Ostrel_Log.h>

namespace Ostrel {

namespace {

// Kept per thread, like the system's own last error: a failure on one thread must not be read
// as the result of another thread's call.
thread_local unsigned long t_last_error = Error::SUCCESS;

} // namespace

unsigned long Error::GetLastError()
{
    return t_last_error;
}

void Error::SetLastError(unsigned long code)
{
    t_last_error = code;
}

unsigned long Error::FromErrno(int err)
{
    switch (err) {
    case 0:
        return SUCCESS;
    case ENOENT:
        return FILE_NOT_FOUND;
    case ENOTDIR:
        return PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
        return ACCESS_DENIED;
    case EBADF:
        return INVALID_HANDLE;
    case ENOMEM:
        return NOT_ENOUGH_MEMORY;
    case ETXTBSY:
    case EBUSY:
        return SHARING_VIOLATION;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return DISK_FULL;
    case EEXIST:
        return FILE_EXISTS;
    case EINVAL:
        return INVALID_PARAMETER;
    case ENAMETOOLONG:
        return FILENAME_EXCED_RANGE;
    case EIO:
    default:
        return GEN_FAILURE;
    }
}

void Error::SetLastErrorFromErrno(int err)
{
    t_last_error = FromErrno(err);
}

std::string Error::GetErrorText(unsigned long code)
{
    switch (code) {
    case SUCCESS:
        return "The operation completed successfully.";
    case FILE_NOT_FOUND:
        return "The system cannot find the file specified.";
    case PATH_NOT_FOUND:
        return "The system cannot find the path specified.";
    case ACCESS_DENIED:
        return "Access is denied.";
    case INVALID_HANDLE:
        return "The handle is invalid.";
    case NOT_ENOUGH_MEMORY:
        return "Not enough memory resources are available to process this command.";
    case WRITE_FAULT:
        return "The system cannot write to the specified device.";
    case READ_FAULT:
        return "The system cannot read from the specified device.";
    case GEN_FAILURE:
        return "A device attached to the system is not functioning.";
    case SHARING_VIOLATION:
        return "The process cannot access the file because it is being used by another process.";
    case HANDLE_DISK_FULL:
    case DISK_FULL:
        return "There is not enough space on the disk.";
    case FILE_EXISTS:
        return "The file exists.";
    case INVALID_PARAMETER:
        return "The parameter is incorrect.";
    case INVALID_NAME:
        return "The filename, directory name, or volume label syntax is incorrect.";
    case ALREADY_EXISTS:
        return "Cannot create a file when that file already exists.";
    case FILENAME_EXCED_RANGE:
        return "The filename or extension is too long.";
    default:
        return "Unknown error " + std::to_string(code) + ".";
    }
}

void Error::LogSystemError(Level)
{
    // Reading the error must not change it: the caller may still test it after logging.
    const unsigned long code = t_last_error;
    try {
        const std::string text = GetErrorText(code);
        Log::LogMessage(__FILE__, __LINE__, __func__, Log::LEVEL_FAILURE, "[System] Error %lu: %s", code,
                        text.c_str());
    } catch (...) {
    }
    t_last_error = code;
}

} // namespace Ostrel
