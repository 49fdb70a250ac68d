#ifndef VELLUMENT_EXPORT_H
#define VELLUMENT_EXPORT_H

// Everything the library exports carries VELLUMENT_API; the build hides all other symbols.
#if defined(_WIN32)
#  if defined(VELLUMENT_BUILDING)
#    define VELLUMENT_API __declspec(dllexport)
#  else
#    define VELLUMENT_API __declspec(dllimport)
#  endif
#else
#  define VELLUMENT_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__) || defined(__clang__)
#  define VELLUMENT_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#  define VELLUMENT_PRINTF(fmt_index, first_arg)
#endif

#endif
