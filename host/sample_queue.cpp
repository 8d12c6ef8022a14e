#include "host/sample_queue.h"

#include <utility>

namespace tarq::host {

bool SampleQueue::Push(standin::Sample&& sample) {
  bytes_ += Cost(sample);
  samples_.push_back(std::move(sample));
  bool wasLosing = losing_;
  while (bytes_ > maxBytes_) {
    losing_ = true;
    dropped_.Add(samples_.front().recordCount);
    bytes_ -= Cost(samples_.front());
    samples_.pop_front();
  }
  return losing_ && !wasLosing;
}

std::optional<standin::Sample> SampleQueue::Pop() {
  if (samples_.empty()) return std::nullopt;
  standin::Sample sample = std::move(samples_.front());
  samples_.pop_front();
  bytes_ -= Cost(sample);
  if (samples_.empty()) losing_ = false;
  return sample;
}

}  // namespace tarq::host
