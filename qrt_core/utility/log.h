#pragma once

#include <string>

#include "qrt_core/utility/export.h"
#include "qrt_core/utility/status.h"

/// Lets the compiler check the arguments of a printf-like function.
#define QRT_PRINTF_LIKE(format_index) \
  __attribute__((format(printf, format_index, (format_index) + 1)))

// Mask, tag and callback are there once per process, without a lock: set them before other threads
// begin. Each thread formats its messages in a buffer of its own, so that threads that log, or
// fail, at one time keep their own texts; the callback is then called by all of them, and an
// application's own must be ready for that. All of it works until the process ends, in the
// destructors of an application's globals too.

namespace marlo::utility {

/// Log levels: single bits, so that a mask enables any subset.
enum LogLevel : int {
  LOG_VERBOSE = 1,  ///< off by default
  LOG_TRACE = 2,    ///< accepted, never printed
  LOG_INFO = 4,     ///< information
  LOG_WARNING = 8,  ///< something was repaired or looks wrong
  LOG_ERROR = 16,   ///< an operation failed
};

/// Receives one finished line without a trailing newline (an error line carries one).
/// The result is ignored.
using LogCallback = int (*)(const char* line);

/// Formats a message and hands "[tag] (Level): message" to the log callback.
///
/// A level that is not one of 1, 4, 8, 16, or whose bit is clear in the mask, formats nothing.
/// Text beyond 2047 characters is cut.
/// @return the thread's message buffer: this message, or the last one that the thread formatted if
///   this call was filtered
QRT_API std::string Log(int level, const char* format, ...) QRT_PRINTF_LIKE(2);

/// Does nothing and returns 0 when `condition` holds. Otherwise reports the formatted message to
/// the log callback whatever the mask holds, and throws.
///
/// A null `format` reports nothing; the exception then carries only the tag.
/// @throws Error, a std::runtime_error with the reported text
QRT_API QR_STATUS Assert(bool condition, const char* format, ...) QRT_PRINTF_LIKE(2);

/// Sets the mask of enabled levels; 30 (all but verbose) at start. Always 0.
QRT_API QR_STATUS SetLogLevel(unsigned int mask);

/// Stores the mask of enabled levels in `*mask`, unless that is null. Always 0.
QRT_API QR_STATUS GetLogLevel(unsigned int* mask);

/// Sets the text between the brackets of each line; "QRT" at start.
/// @return -1 for an empty text or a null pointer, which change nothing
QRT_API QR_STATUS SetLogTag(const char* tag);

/// Replaces the sink of `Log` and `Assert`, which at start prints to standard output.
/// @return -1 for a null pointer, which changes nothing
QRT_API QR_STATUS SetLogCallback(int (*callback)(const char*));

}  // namespace marlo::utility
