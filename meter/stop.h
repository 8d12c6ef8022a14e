// The end of the run: a signal, or the time given for it.
#pragma once

#include <chrono>

namespace tarq::meter {

/// Turns SIGINT, SIGTERM and the end of a duration into a descriptor that becomes readable for good. A second
/// SIGINT or SIGTERM, whichever, ends the process at once. There is one per process.
class StopRequest {
 public:
  /// `duration` 0 means no end. Signal handlers stay set afterwards.
  explicit StopRequest(std::chrono::milliseconds duration);

  int descriptor() const;
  bool requested() const;
};

}  // namespace tarq::meter
