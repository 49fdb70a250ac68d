#include <vellument/Ostrel_Log.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <vellument/Ostrel_Error.h>

#include "Ostrel/FileSystem_Paths.h"

namespace Ostrel {

namespace {

// The log file is rotated when it passes this size; this many older files are kept.
const off_t kRotateSize = 5 * 1024 * 1024;
const int kKeptFiles = 3;
const int kDefaultLevel = Log::LEVEL_INFO;

// Everything is guarded by one recursive mutex: a host sink may call back into the log's API.
struct LogState {
    std::recursive_mutex mutex;
    Log::SinkFunction sink = nullptr;
    void* sink_context = nullptr;
    Log::MessageBoxFunction box = nullptr;
    void* box_context = nullptr;
    int fd = -1;
    dev_t dev = 0;
    ino_t ino = 0;
    std::string path;
    std::string directory;
};

LogState& State()
{
    static LogState* state = new LogState;  // never destroyed: logging may happen during exit
    return *state;
}

std::atomic<int> g_level{-1};
std::once_flag g_path_once;

int LevelFromEnvironment()
{
    const char* text = std::getenv("VELLUMENT_LOG_LEVEL");
    if (text == nullptr)
        return kDefaultLevel;
    while (*text == ' ' || *text == '\t')
        ++text;
    if (*text < '1' || *text > '4')
        return kDefaultLevel;
    int level = *text - '0';
    ++text;
    while (*text == ' ' || *text == '\t' || *text == '\r' || *text == '\n')
        ++text;
    return *text == '\0' ? level : kDefaultLevel;
}

int Threshold()
{
    int level = g_level.load(std::memory_order_relaxed);
    if (level < 0) {
        int expected = -1;
        g_level.compare_exchange_strong(expected, LevelFromEnvironment());
        level = g_level.load(std::memory_order_relaxed);
    }
    return level;
}

bool Passes(int level)
{
    int threshold = Threshold();
    return threshold > 0 && level <= threshold;
}

void ComputePath()
{
    LogState& s = State();
    try {
        s.directory = FileSystemDetail::LocalAppDataDiskPath(false);
        s.path = s.directory + "/Vellument.log";
    } catch (...) {
    }
}

const std::string& LogPath()
{
    std::call_once(g_path_once, ComputePath);
    return State().path;
}

std::string FormatV(const char* format, va_list args)
{
    if (format == nullptr)
        return "(null)";
    va_list copy;
    va_copy(copy, args);
    char small[512];
    int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0)
        return std::string("(bad format) ") + format;
    if (static_cast<std::size_t>(n) < sizeof small)
        return std::string(small, static_cast<std::size_t>(n));
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(&text[0], text.size(), format, args);
    text.resize(static_cast<std::size_t>(n));
    return text;
}

const char* BaseName(const char* file)
{
    if (file == nullptr)
        return "?";
    const char* base = file;
    for (const char* p = file; *p != '\0'; ++p)
        if (*p == '/' || *p == '\\')
            base = p + 1;
    return base;
}

std::string Timestamp()
{
    struct timeval tv;
    ::gettimeofday(&tv, nullptr);
    struct tm tm;
    time_t seconds = tv.tv_sec;
    ::localtime_r(&seconds, &tm);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d.%03d", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(tv.tv_usec / 1000));
    return buffer;
}

void CloseFile(LogState& s)
{
    if (s.fd >= 0)
        ::close(s.fd);
    s.fd = -1;
}

bool OpenFile(LogState& s)
{
    if (s.path.empty())
        return false;
    int fd = ::open(s.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
    if (fd < 0 && errno == ENOENT) {
        FileSystemDetail::LocalAppDataDiskPath(true);
        fd = ::open(s.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
    }
    if (fd < 0)
        return false;
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        ::close(fd);
        return false;
    }
    s.fd = fd;
    s.dev = st.st_dev;
    s.ino = st.st_ino;
    return true;
}

std::string RotatedName(const LogState& s, int n)
{
    return s.directory + "/Vellument." + std::to_string(n) + ".log";
}

void Rotate(LogState& s)
{
    CloseFile(s);
    ::unlink(RotatedName(s, kKeptFiles).c_str());
    for (int n = kKeptFiles - 1; n >= 1; --n)
        ::rename(RotatedName(s, n).c_str(), RotatedName(s, n + 1).c_str());
    ::rename(s.path.c_str(), RotatedName(s, 1).c_str());
}

void WriteToFile(LogState& s, const std::string& line)
{
    LogPath();
    // The file may have been moved or removed by someone else: follow the name, not the inode.
    struct stat st;
    bool present = ::stat(s.path.c_str(), &st) == 0;
    if (s.fd >= 0 && (!present || st.st_dev != s.dev || st.st_ino != s.ino))
        CloseFile(s);
    if (present && st.st_size >= kRotateSize)
        Rotate(s);
    if (s.fd < 0 && !OpenFile(s))
        return;  // nowhere to write: the line is dropped
    const char* p = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t n = ::write(s.fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        p += n;
        left -= static_cast<std::size_t>(n);
    }
}

// Hands a formatted text to the sink. Keeps errno and the last error as the caller left them.
void Emit(const char* file, int line, const char* function, int level, const std::string& text)
{
    static thread_local bool inside = false;
    if (inside)
        return;  // a sink that logs would recurse forever
    const int saved_errno = errno;
    const unsigned long saved_error = Error::GetLastError();
    inside = true;
    try {
        LogState& s = State();
        std::lock_guard<std::recursive_mutex> lock(s.mutex);
        if (s.sink != nullptr) {
            s.sink(s.sink_context, static_cast<Log::Level>(level), file ? file : "?", line,
                   function ? function : "?", text.c_str());
        } else {
            std::string out = Timestamp();
            out += " [L";
            out += std::to_string(level);
            out += "] ";
            out += BaseName(file);
            out += ':';
            out += std::to_string(line);
            out += ' ';
            out += function ? function : "?";
            out += ": ";
            out += text;
            if (out.back() != '\n')
                out += '\n';
            WriteToFile(s, out);
        }
    } catch (...) {
    }
    inside = false;
    Error::SetLastError(saved_error);
    errno = saved_errno;
}

int ShowBox(const std::string& text, unsigned int style)
{
    Log::MessageBoxFunction box = nullptr;
    void* context = nullptr;
    {
        LogState& s = State();
        std::lock_guard<std::recursive_mutex> lock(s.mutex);
        box = s.box;
        context = s.box_context;
    }
    // Called without the lock: a box waits for the user, and other threads keep logging.
    if (box != nullptr) {
        try {
            return box(context, text.c_str(), style);
        } catch (...) {
            return Log::BUTTON_OK;
        }
    }
    std::string out = text;
    if (out.empty() || out.back() != '\n')
        out += '\n';
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
    return Log::BUTTON_OK;
}

} // namespace

void Log::LogMessage(const char* file, int line, const char* function, Level level, const char* format, ...)
{
    if (!Passes(level))
        return;
    const int saved_errno = errno;
    try {
        va_list args;
        va_start(args, format);
        std::string text = FormatV(format, args);
        va_end(args);
        Emit(file, line, function, level, text);
    } catch (...) {
    }
    errno = saved_errno;
}

void Log::LogAndShowMessage(const char* file, int line, const char* function, Level level, const char* format, ...)
{
    const int saved_errno = errno;
    try {
        va_list args;
        va_start(args, format);
        std::string text = FormatV(format, args);
        va_end(args);
        if (Passes(level))
            Emit(file, line, function, level, text);
        ShowBox(text, 0);
    } catch (...) {
    }
    errno = saved_errno;
}

int Log::msgBoxReturn(const char* file, int line, const char* function, Level level, const char* message,
                      unsigned int style)
{
    const int saved_errno = errno;
    int button = BUTTON_OK;
    try {
        std::string text = message ? message : "";
        if (Passes(level))
            Emit(file, line, function, level, text);
        button = ShowBox(text, style);
    } catch (...) {
    }
    errno = saved_errno;
    return button;
}

void Log::SetSink(SinkFunction sink, void* context)
{
    LogState& s = State();
    std::lock_guard<std::recursive_mutex> lock(s.mutex);
    s.sink = sink;
    s.sink_context = sink ? context : nullptr;
}

void Log::SetMessageBoxHandler(MessageBoxFunction handler, void* context)
{
    LogState& s = State();
    std::lock_guard<std::recursive_mutex> lock(s.mutex);
    s.box = handler;
    s.box_context = handler ? context : nullptr;
}

void Log::SetLevel(int level)
{
    if (level < 0)
        level = 0;
    g_level.store(level, std::memory_order_relaxed);
}

int Log::GetLevel()
{
    return Threshold();
}

const char* Log::GetLogFilePath()
{
    try {
        return LogPath().c_str();
    } catch (...) {
        return "";
    }
}

} // namespace Ostrel
