#ifndef VELLUMENT_TESTS_LOG_CAPTURE_H
#define VELLUMENT_TESTS_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include <vellument/Ostrel_Log.h>

namespace vlmtest {

// Collects the log lines of its lifetime, every level let through, with the level of each.
class LogCapture {
public:
    LogCapture()
    {
        level_ = Ostrel::Log::GetLevel();
        Ostrel::Log::SetLevel(4);
        Ostrel::Log::SetSink(&LogCapture::sink, this);
    }
    ~LogCapture()
    {
        Ostrel::Log::SetSink(nullptr, nullptr);
        Ostrel::Log::SetLevel(level_);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    bool contains(const std::string& text) const
    {
        std::lock_guard<std::mutex> guard(lock_);
        for (const std::string& line : lines)
            if (line.find(text) != std::string::npos)
                return true;
        return false;
    }
    // A line of that level that starts with start.
    bool has(int level, const std::string& start) const
    {
        std::lock_guard<std::mutex> guard(lock_);
        for (std::size_t i = 0; i < lines.size(); ++i)
            if (levels[i] == level && lines[i].rfind(start, 0) == 0)
                return true;
        return false;
    }
    void clear()
    {
        std::lock_guard<std::mutex> guard(lock_);
        lines.clear();
        levels.clear();
    }
    std::vector<std::string> lines;
    std::vector<int> levels;

private:
    static void sink(void* context, Ostrel::Log::Level level, const char*, int, const char*, const char* text)
    {
        LogCapture* self = static_cast<LogCapture*>(context);
        std::lock_guard<std::mutex> guard(self->lock_);
        self->lines.push_back(text != nullptr ? text : "");
        self->levels.push_back(static_cast<int>(level));
    }
    mutable std::mutex lock_;
    int level_;
};

} // namespace vlmtest

#endif
