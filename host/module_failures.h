// Losses that the module tells in log lines alone.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

#include "host/kinds.h"

namespace tarq::host {

struct ModuleFailures {
  std::array<uint64_t, kKinds.size()> notEncoded{};  ///< records that an encoder refused, in the order of `kKinds`
  uint64_t notFramed = 0;  ///< samples that were never uploaded: no memory, no room for their frame, or no upload slot
};

/// Counts the losses from the log lines as they come. Any thread may call any function.
class FailureLines {
 public:
  /// Takes a log line, on the thread that wrote it.
  void Take(std::string_view text);
  ModuleFailures Get() const;

 private:
  std::array<std::atomic<uint64_t>, kKinds.size()> notEncoded_{};
  std::atomic<uint64_t> notFramed_ = 0;
};

}  // namespace tarq::host
