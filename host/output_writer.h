// The thread that serves one output from its subscriptions' queues.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/output.h"
#include "host/sample_queue.h"
#include "host/subscriptions.h"

namespace tarq::host {

/// How often an output looks round while there is nothing to write.
inline constexpr std::chrono::milliseconds kIdlePeriod{250};

/// Where a subscription's samples are. Every sample received is in exactly one of the next four.
struct SubscriptionCounters {
  SampleCount received;
  SampleCount delivered;
  SampleCount dropped;      ///< by its full queue
  SampleCount failed;       ///< not taken by the output
  SampleCount waiting;      ///< in its queue or being written
  SampleCount unconfirmed;  ///< of the delivered: on a connection that broke before they were acknowledged
};

/// Takes samples from any thread without ever blocking it and writes them on a thread of its own, one sample of each
/// waiting subscription in turn.
class OutputWriter {
 public:
  /// `queueBytes` bounds each subscription's queue. `onGone` is called once, on the writer's thread, when the output
  /// takes nothing more; samples that still come count as failed.
  OutputWriter(std::unique_ptr<Output> output, std::vector<Subscription> subscriptions, size_t queueBytes,
               std::function<void()> onGone);
  /// Waits for the write in hand, however long it takes.
  ~OutputWriter();

  /// Queues a sample for the subscription at place `slot` among this output's.
  void Push(size_t slot, standin::Sample&& sample);

  /// Waits until nothing is queued or being written. False when `deadline` came first.
  bool WaitIdle(Deadline deadline);

  /// Makes the thread end after the write in hand, which is cancelled; what is queued stays counted as waiting.
  void BeginStop(Deadline deadline);

  /// Waits for the end that was begun. False when the write was still not over at its deadline: then the thread runs
  /// on.
  bool AwaitStop();

  const std::vector<Subscription>& subscriptions() const { return subscriptions_; }
  SubscriptionCounters counters(size_t slot);
  /// Why the output takes nothing more; empty while it does.
  std::string goneReason() const;
  std::string name() const { return output_->name(); }
  LinkStatus link() const { return output_->link(); }

 private:
  void Run();
  bool WaitForWork(std::unique_lock<std::mutex>& lock);
  void CountUnconfirmed();
  std::optional<size_t> NextSlot() const;
  WriteResult WriteUnlocked(std::unique_lock<std::mutex>& lock, size_t slot, const standin::Sample& sample);
  void Account(size_t slot, const standin::Sample& sample, const WriteResult& result);

  std::unique_ptr<Output> output_;
  std::vector<Subscription> subscriptions_;
  std::function<void()> onGone_;

  mutable std::mutex mutex_;  // guards all that follows
  std::condition_variable work_;
  std::condition_variable progress_;
  std::vector<SampleQueue> queues_;
  std::vector<SubscriptionCounters> counters_;  // waiting: the sample being written alone
  size_t turn_ = 0;
  bool writing_ = false;
  bool idling_ = false;  // the output looks round
  bool failing_ = false;
  bool stopping_ = false;
  Deadline stopDeadline_{};
  bool ended_ = false;
  std::string goneReason_;

  std::thread thread_;
};

}  // namespace tarq::host
