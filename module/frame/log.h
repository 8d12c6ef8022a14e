// Log lines, written through the framework.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/framework.h"

namespace tarq {

/// Formats one line and hands it to the framework's log. A line of 255 characters or more is dropped whole, as is an
/// empty one; without a table or a log slot nothing happens. Any thread; allocates nothing.
TARQ_EXPORT void SAVRO_TARQ_WriteTlmLog(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace tarq

/// Writes a line whose format begins "[%s:%d]": the label and the line number that fill it come first.
#define TARQ_LOG_AT(line, level, format, ...) \
  ::tarq::SAVRO_TARQ_WriteTlmLog(level, format, "to.do", line __VA_OPT__(, ) __VA_ARGS__)

/// The same with the number of the calling line.
#define TARQ_LOG(level, format, ...) TARQ_LOG_AT(__LINE__, level, format __VA_OPT__(, ) __VA_ARGS__)
