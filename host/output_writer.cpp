#include "host/output_writer.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <utility>

namespace tarq::host {

OutputWriter::OutputWriter(std::unique_ptr<Output> output, std::vector<Subscription> subscriptions, size_t queueBytes,
                           std::function<void()> onGone)
    : output_(std::move(output)),
      subscriptions_(std::move(subscriptions)),
      onGone_(std::move(onGone)),
      queues_(subscriptions_.size(), SampleQueue(queueBytes)),
      counters_(subscriptions_.size()),
      thread_([this] { Run(); }) {}

OutputWriter::~OutputWriter() {
  if (!thread_.joinable()) return;
  BeginStop(Deadline::max());
  AwaitStop();
}

void OutputWriter::Push(size_t slot, standin::Sample&& sample) {
  bool lossBegan;
  {
    std::lock_guard lock(mutex_);
    const uint32_t records = sample.recordCount;
    lossBegan = queues_[slot].Push(std::move(sample));
    counters_[slot].received.Add(records);
  }
  work_.notify_one();
  if (lossBegan) {
    spdlog::warn("{}: {} is too slow, the queue is full; its oldest samples are dropped", subscriptions_[slot].text(),
                 name());
  }
}

bool OutputWriter::WaitIdle(Deadline deadline) {
  std::unique_lock lock(mutex_);
  return progress_.wait_until(lock, deadline, [this] { return !writing_ && !NextSlot(); });
}

void OutputWriter::BeginStop(Deadline deadline) {
  std::lock_guard lock(mutex_);
  stopping_ = true;
  stopDeadline_ = deadline;
  work_.notify_one();
  if (writing_ || idling_) output_->Cancel();
}

bool OutputWriter::AwaitStop() {
  {
    std::unique_lock lock(mutex_);
    const auto ended = [this] { return ended_; };
    if (stopDeadline_ == Deadline::max()) {
      progress_.wait(lock, ended);
    } else if (!progress_.wait_until(lock, stopDeadline_, ended)) {
      return false;
    }
  }
  if (thread_.joinable()) thread_.join();
  return true;
}

SubscriptionCounters OutputWriter::counters(size_t slot) {
  std::lock_guard lock(mutex_);
  CountUnconfirmed();
  SubscriptionCounters counters = counters_[slot];
  counters.dropped = queues_[slot].dropped();
  counters.waiting.Add(queues_[slot].waiting());
  return counters;
}

std::string OutputWriter::goneReason() const {
  std::lock_guard lock(mutex_);
  return goneReason_;
}

void OutputWriter::Run() {
  std::unique_lock lock(mutex_);
  while (true) {
    while (!WaitForWork(lock)) {
    }
    if (stopping_) break;
    size_t slot = *NextSlot();
    turn_ = slot + 1;
    standin::Sample sample = *queues_[slot].Pop();
    counters_[slot].waiting.Add(sample.recordCount);
    Account(slot, sample, WriteUnlocked(lock, slot, sample));
    progress_.notify_all();
  }
  const Deadline deadline = stopDeadline_;
  lock.unlock();
  output_->Finish(deadline);
  lock.lock();
  CountUnconfirmed();
  ended_ = true;
  progress_.notify_all();
}

/// Waits for a sample or the end. False when there was none for a while, and the output has had a look round.
bool OutputWriter::WaitForWork(std::unique_lock<std::mutex>& lock) {
  if (work_.wait_for(lock, kIdlePeriod, [this] { return stopping_ || NextSlot(); })) return true;
  idling_ = true;
  lock.unlock();
  output_->Idle();
  lock.lock();
  idling_ = false;
  CountUnconfirmed();
  return false;
}

void OutputWriter::CountUnconfirmed() {
  for (const Unconfirmed& lost : output_->TakeUnconfirmed()) {
    auto slot = std::ranges::find(subscriptions_, lost.taskId, &Subscription::taskId) - subscriptions_.begin();
    counters_[static_cast<size_t>(slot)].unconfirmed.Add(lost.count);
  }
}

std::optional<size_t> OutputWriter::NextSlot() const {
  for (size_t i = 0; i < queues_.size(); ++i) {
    size_t slot = (turn_ + i) % queues_.size();
    if (!queues_[slot].empty()) return slot;
  }
  return std::nullopt;
}

WriteResult OutputWriter::WriteUnlocked(std::unique_lock<std::mutex>& lock, size_t slot,
                                        const standin::Sample& sample) {
  if (!goneReason_.empty()) return {WriteResult::Outcome::kGone, goneReason_};
  writing_ = true;
  lock.unlock();
  WriteResult result = output_->Write(subscriptions_[slot], sample);
  lock.lock();
  writing_ = false;
  CountUnconfirmed();
  return result;
}

void OutputWriter::Account(size_t slot, const standin::Sample& sample, const WriteResult& result) {
  bool delivered = result.outcome == WriteResult::Outcome::kDelivered;
  counters_[slot].waiting.Remove(sample.recordCount);
  (delivered ? counters_[slot].delivered : counters_[slot].failed).Add(sample.recordCount);
  if (!delivered && !failing_) spdlog::error("{}: {}; samples are lost", name(), result.reason);
  if (delivered && failing_) spdlog::info("{}: takes samples again", name());
  failing_ = !delivered;
  if (result.outcome == WriteResult::Outcome::kGone && goneReason_.empty()) {
    goneReason_ = result.reason;
    onGone_();
  }
}

}  // namespace tarq::host
