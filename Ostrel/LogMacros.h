#ifndef VELLUMENT_OSTREL_LOGMACROS_H
#define VELLUMENT_OSTREL_LOGMACROS_H

#include <vellument/Ostrel_Log.h>

// Logs with the caller's file, line and function.
#define VLOG(level, ...) \
    ::Ostrel::Log::LogMessage(__FILE__, __LINE__, __func__, static_cast<::Ostrel::Log::Level>(level), __VA_ARGS__)

#endif
