// What the module did across the seam, by thread: tells the part of the platform that called it what became of a
// message.
#pragma once

#include <cstdint>

namespace tarq::standin {

struct Crossings {
  uint64_t elementsWritten = 0;  ///< to any queue
  uint64_t elementsRefused = 0;  ///< by any queue
  uint64_t unpackings = 0;       ///< of messages, good or bad
  uint64_t failureLines = 0;
};

/// The calling thread's, from its start.
inline Crossings& ThisThreadsCrossings() {
  static thread_local Crossings crossings;
  return crossings;
}

}  // namespace tarq::standin
