// The stand-in's own log lines, which take the same way as the module's.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarq::standin {

/// Longest line, terminator included; what is beyond is cut off.
inline constexpr size_t kMaxLogLine = 512;

/// Writes one line, "[area] text", of a `LogLevel`. Calls the log handler on this thread, so hold no lock that it may
/// need.
void Log(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace tarq::standin
