// Hands samples to their handler on a thread of its own.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>

#include "standin/standin.h"

namespace tarq::standin {

/// A bounded queue of samples and the thread that empties it. Any thread may call any function.
class SampleDelivery {
 public:
  void SetHandler(SampleHandler handler);

  /// Takes a sample over. False when `kMaxPendingBytes` wait already or delivery has stopped.
  bool Accept(Sample&& sample);

  /// Counts an upload, before anything becomes of it.
  void CountUpload(uint32_t records);
  /// Counts an upload that was refused before it became a sample.
  void CountRefused(uint32_t taskId, uint32_t records);

  bool WaitIdle(std::chrono::milliseconds timeout);
  void Stop();

  /// Fills in the counters of uploads.
  void Count(FrameworkCounters& counters) const;

 private:
  void Run();
  bool Deliver(const SampleHandler& handler, Sample&& sample);
  void Settle(uint32_t taskId, uint32_t records, SampleCount UploadCounters::*outcome);
  bool Idle() const { return pendingBytes_ == 0; }

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable idle_;
  SampleHandler handler_;
  std::deque<Sample> waiting_;
  size_t pendingBytes_ = 0;  ///< of the waiting samples and the one in the handler
  bool full_ = false;        ///< samples are being refused; noted in one log line
  bool stopped_ = false;
  std::thread thread_;
  SampleCount uploaded_;
  std::map<uint32_t, UploadCounters> byTask_;
};

}  // namespace tarq::standin
