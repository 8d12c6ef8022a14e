// From the framework's samples to the outputs.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "host/output.h"
#include "host/output_writer.h"
#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

/// Default bound of a subscription's queue in bytes: room for about 260 full samples, so that a burst can wait for its
/// reader.
inline constexpr size_t kDefaultQueueBytes = 8u << 20;
/// Smallest and largest bound that can be asked for; the smallest holds one full sample at least.
inline constexpr size_t kMinQueueBytes = 64u << 10;
inline constexpr size_t kMaxQueueBytes = 1u << 30;

/// How one output is getting on.
struct OutputStatus {
  std::string name;
  LinkStatus link;
};

/// Hands each sample to its subscription's output. Outputs are added before the first sample comes.
class Delivery {
 public:
  /// `onGone` is called, on an output's thread, when no output takes anything more.
  Delivery(size_t queueBytes, std::function<void()> onGone) : queueBytes_(queueBytes), onGone_(std::move(onGone)) {}

  /// Adds an output and the subscriptions that it serves.
  void AddOutput(std::unique_ptr<Output> output, const std::vector<Subscription>& subscriptions);

  /// Takes a sample; never blocks. One that belongs to no subscription is counted and dropped.
  void Take(standin::Sample&& sample);

  /// Waits until all outputs have written all they were given. False when `deadline` came first.
  bool WaitIdle(Deadline deadline);

  /// Ends the outputs' threads. False when one was still in a write at `deadline`: the object may not be destroyed
  /// then.
  bool Stop(Deadline deadline);

  /// Counters of a subscription; all zero for one that no output serves.
  SubscriptionCounters counters(const Subscription& subscription) const;
  uint64_t unknownSamples() const { return unknownSamples_; }
  /// "NAME: REASON" of each output that takes nothing more.
  std::vector<std::string> GoneOutputs() const;
  std::vector<OutputStatus> outputs() const;

 private:
  struct Route {
    uint32_t taskId;
    OutputWriter* writer;
    size_t slot;
  };
  const Route* FindRoute(uint32_t taskId) const;

  size_t queueBytes_;
  std::function<void()> onGone_;
  std::vector<std::unique_ptr<OutputWriter>> writers_;
  std::vector<Route> routes_;
  std::atomic<uint64_t> unknownSamples_ = 0;
  std::atomic<size_t> gone_ = 0;
};

}  // namespace tarq::host
