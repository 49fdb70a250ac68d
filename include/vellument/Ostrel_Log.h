#ifndef VELLUMENT_OSTREL_LOG_H
#define VELLUMENT_OSTREL_LOG_H

#include <vellument/export.h>

namespace Ostrel {

// The library's log. Every call is printf-style, never throws and may come from any thread.
// Without a sink of the host's, lines go to "Vellument.log" in the local application data
// directory, rotated by size. Lines above the threshold (VELLUMENT_LOG_LEVEL, default 3) are dropped.
class VELLUMENT_API Log {
public:
    enum Level {
        LEVEL_NONE = 0,
        LEVEL_FAILURE = 1,  // an operation did not do what was asked
        LEVEL_WARNING = 2,  // a failed step that the operation survives
        LEVEL_INFO = 3,     // progress and decisions
        LEVEL_DETAIL = 4,   // bulk detail
    };

    static void LogMessage(const char* file, int line, const char* function, Level level, const char* format, ...)
        VELLUMENT_PRINTF(5, 6);
    // Logs, then shows the text to the user through the message-box handler.
    static void LogAndShowMessage(const char* file, int line, const char* function, Level level, const char* format, ...)
        VELLUMENT_PRINTF(5, 6);
    // Logs the ready text and shows it in a message box; returns the button pressed.
    // Style 0 is a plain box with an OK button.
    static int msgBoxReturn(const char* file, int line, const char* function, Level level, const char* message,
                            unsigned int style);

    // Button numbers that a message-box handler returns.
    enum Button { BUTTON_OK = 1, BUTTON_CANCEL = 2 };

    // A host's own sink receives each line that passes the threshold, already formatted.
    typedef void (*SinkFunction)(void* context, Level level, const char* file, int line, const char* function,
                                 const char* text);
    // A host's own message box; returns the button pressed.
    typedef int (*MessageBoxFunction)(void* context, const char* text, unsigned int style);

    // Installs a sink; a null function restores the default file sink.
    static void SetSink(SinkFunction sink, void* context);
    // Installs a message-box handler; a null function restores the default, which writes the
    // text to stderr and returns BUTTON_OK.
    static void SetMessageBoxHandler(MessageBoxFunction handler, void* context);
    // The threshold: lines of a higher level are dropped. Starts from VELLUMENT_LOG_LEVEL.
    static void SetLevel(int level);
    static int GetLevel();
    // Path (on disk) of the default log file.
    static const char* GetLogFilePath();
};

} // namespace Ostrel

#endif
