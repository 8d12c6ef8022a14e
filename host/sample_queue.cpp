#include "host/sample_queue.h"

#include <utility>

namespace tarq::host {

bool SampleQueue::Push(standin::Sample&& sample) {
  samples_.push_back(std::move(sample));
  bytes_ += Cost(samples_.back());
  waiting_.Add(samples_.back().recordCount);
  bool wasLosing = losing_;
  while (bytes_ > maxBytes_) {
    losing_ = true;
    dropped_.Add(TakeFirst().recordCount);
  }
  return losing_ && !wasLosing;
}

std::optional<standin::Sample> SampleQueue::Pop() {
  if (samples_.empty()) return std::nullopt;
  standin::Sample sample = TakeFirst();
  if (samples_.empty()) losing_ = false;
  return sample;
}

standin::Sample SampleQueue::TakeFirst() {
  standin::Sample sample = std::move(samples_.front());
  samples_.pop_front();
  bytes_ -= Cost(sample);
  waiting_.Remove(sample.recordCount);
  return sample;
}

}  // namespace tarq::host
