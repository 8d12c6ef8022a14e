// Statistics messages that are made before they are sent.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarq::load {

inline constexpr size_t kKindCount = 3;
inline constexpr uint32_t kRecordsPerMessage = 100;

/// Frames of one kind for the channel, each a message of `kRecordsPerMessage` different records.
struct Frames {
  std::vector<std::string> frames;
  size_t entrySize = 0;
  size_t periodOffset = 0;  ///< within an entry
  size_t periodSize = 0;

  /// Puts all records into a period.
  void SetPeriod(uint64_t period);
};

/// Makes frames of the three kinds, the same ones each time: a fifth of the flows IPv6, names and counts as they occur.
std::array<Frames, kKindCount> MakeTraffic();

}  // namespace tarq::load
