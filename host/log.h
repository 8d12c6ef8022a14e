// Log lines on standard error, with level and UTC time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarq::host {

/// Log lines that wait to be written at most. Beyond that the oldest go, so that a stalled reader of standard error
/// never holds up the thread that logs.
inline constexpr size_t kMaxWaitingLogLines = 8192;

/// Starts logging through spdlog's default logger. `level` is debug, info, warn or error.
void StartLog(const std::string& level);

/// Writes a line of the module or the stand-in, made printable: notes as debug, milestones as info, failures as error.
void LogPlatformLine(uint32_t level, std::string_view text);

/// Lines that were dropped so far.
uint64_t DroppedLogLines();

/// Writes what is waiting, blocking as long as that takes. Ends logging too when `threadsEnded`; else other threads may
/// go on logging. Returns the number of lines that were dropped.
uint64_t StopLog(bool threadsEnded);

}  // namespace tarq::host
