// The bounded queue between the framework's delivery thread and one subscription's output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "standin/standin.h"

namespace tarq::host {

using standin::SampleCount;

/// Holds one subscription's samples, oldest first, up to a limit in bytes. Not for several threads at once: its owner
/// keeps a lock around it.
class SampleQueue {
 public:
  explicit SampleQueue(size_t maxBytes) : maxBytes_(maxBytes) {}

  /// Adds a sample; where it does not fit, the oldest go. Never blocks and never fails. Returns true when this began an
  /// episode of loss: something went and nothing had gone since the queue was last empty.
  bool Push(standin::Sample&& sample);

  /// Takes the oldest sample; none when empty.
  std::optional<standin::Sample> Pop();

  bool empty() const { return samples_.empty(); }
  size_t size() const { return samples_.size(); }
  /// What a sample takes of the limit: its data and its own record.
  static size_t Cost(const standin::Sample& sample) { return sizeof(sample) + sample.data.size(); }
  size_t bytes() const { return bytes_; }
  const SampleCount& waiting() const { return waiting_; }
  const SampleCount& dropped() const { return dropped_; }

 private:
  standin::Sample TakeFirst();

  size_t maxBytes_;
  size_t bytes_ = 0;
  std::deque<standin::Sample> samples_;
  SampleCount waiting_;
  SampleCount dropped_;
  bool losing_ = false;
};

}  // namespace tarq::host
