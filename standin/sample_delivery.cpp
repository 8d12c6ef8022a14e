#include "standin/sample_delivery.h"

#include <pthread.h>

#include <exception>
#include <utility>

#include "standin/log.h"

namespace tarq::standin {
namespace {

size_t BytesOf(const Sample& sample) { return sizeof(Sample) + sample.data.size(); }

}  // namespace

void SampleDelivery::SetHandler(SampleHandler handler) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

bool SampleDelivery::Accept(Sample&& sample) {
  std::unique_lock lock(mutex_);
  if (stopped_ || pendingBytes_ + BytesOf(sample) > kMaxPendingBytes) {
    const bool firstOfEpisode = !stopped_ && !std::exchange(full_, true);
    lock.unlock();
    CountRefused(sample.taskId, sample.recordCount);
    if (firstOfEpisode) Log(kLogFailure, "[framework] samples are refused: too many wait for delivery");
    return false;
  }
  full_ = false;
  if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
  SampleCount& waiting = byTask_[sample.taskId].waiting;
  waiting_.push_back(std::move(sample));
  waiting.Add(waiting_.back().recordCount);
  pendingBytes_ += BytesOf(waiting_.back());
  wake_.notify_one();
  return true;
}

void SampleDelivery::CountUpload(uint32_t records) {
  std::lock_guard lock(mutex_);
  uploaded_.Add(records);
}

void SampleDelivery::CountRefused(uint32_t taskId, uint32_t records) {
  std::lock_guard lock(mutex_);
  byTask_[taskId].refused.Add(records);
}

void SampleDelivery::Run() {
  pthread_setname_np(pthread_self(), "sample-delivery");
  std::unique_lock lock(mutex_);
  while (true) {
    wake_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
    if (stopped_) return;
    Sample sample = std::move(waiting_.front());
    waiting_.pop_front();
    const size_t bytes = BytesOf(sample);
    const auto [task, records] = std::pair(sample.taskId, sample.recordCount);
    const SampleHandler handler = handler_;
    lock.unlock();
    const bool delivered = Deliver(handler, std::move(sample));
    lock.lock();
    Settle(task, records, delivered ? &UploadCounters::delivered : &UploadCounters::dropped);
    pendingBytes_ -= bytes;
    if (Idle()) idle_.notify_all();
  }
}

bool SampleDelivery::Deliver(const SampleHandler& handler, Sample&& sample) {
  if (!handler) return false;
  try {
    handler(std::move(sample));
    return true;
  } catch (const std::exception& error) {
    Log(kLogFailure, "[framework] a sample was not delivered: %s", error.what());
  } catch (...) {
    Log(kLogFailure, "[framework] a sample was not delivered: unknown exception");
  }
  return false;
}

void SampleDelivery::Settle(uint32_t taskId, uint32_t records, SampleCount UploadCounters::*outcome) {
  UploadCounters& counters = byTask_[taskId];
  counters.waiting.Remove(records);
  (counters.*outcome).Add(records);
}

bool SampleDelivery::WaitIdle(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return idle_.wait_for(lock, timeout, [this] { return Idle(); });
}

void SampleDelivery::Stop() {
  std::unique_lock lock(mutex_);
  stopped_ = true;
  wake_.notify_all();
  std::thread thread = std::move(thread_);
  lock.unlock();
  if (thread.joinable()) thread.join();
  lock.lock();
  for (const Sample& sample : waiting_) Settle(sample.taskId, sample.recordCount, &UploadCounters::dropped);
  waiting_.clear();
  pendingBytes_ = 0;
  idle_.notify_all();
}

void SampleDelivery::Count(FrameworkCounters& counters) const {
  std::lock_guard lock(mutex_);
  counters.uploaded = uploaded_;
  counters.byTask = byTask_;
}

}  // namespace tarq::standin
