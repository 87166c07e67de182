// One line of trace: how it looks and how long it may get.
#ifndef CERTKERN_SUPKERN_TRACE_RECORD_H
#define CERTKERN_SUPKERN_TRACE_RECORD_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/limits.h"

namespace certkern::support {

// Bytes of the time at the head of a record, with the blank behind it.
inline constexpr size_t kTraceTimeWidth = 28;

// Where a record comes from. `file` may be empty; nothing is kept.
struct TraceOrigin {
  const char* module;
  unsigned level;
  const char* file;
  int line;
  const char* function;
};

// The level's name in records: error, expected, call, debug, result, cache.
const char* TraceLevelName(unsigned level);

// Appends text so that it stays on its line and cannot steer a terminal: control characters, line separators,
// bytes that are no UTF-8 and the backslash itself become escapes. `line` grows to `limit` bytes at most;
// what does not fit is cut between characters and ends in "...".
void AppendEscaped(std::string_view text, size_t limit, std::string& line);

// "time process:thread module level function line text\n", times in UTC, printf's formats with %S for wide
// text.
std::string FormatTraceRecord(const TraceOrigin& origin, const char* format, va_list arguments);

}  // namespace certkern::support

#endif
