// Samples to a subscriber that listens on a TCP or Unix socket.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/output.h"
#include "host/target.h"
#include "standin/file_descriptor.h"

namespace tarq::host {

/// Time between two attempts to connect: the first, doubled after each failure up to the last.
inline constexpr std::chrono::milliseconds kFirstRetry{100};
inline constexpr std::chrono::milliseconds kLastRetry{2000};
/// Time for one attempt.
inline constexpr std::chrono::milliseconds kConnectTimeout{5000};
/// A connection whose peer's machine says nothing is probed after `kKeepaliveIdle`, then every `kKeepaliveInterval`,
/// and over when `kKeepaliveProbes` had no answer.
inline constexpr std::chrono::seconds kKeepaliveIdle{10};
inline constexpr std::chrono::seconds kKeepaliveInterval{5};
inline constexpr int kKeepaliveProbes = 3;
/// Time at the end for what was delivered to be acknowledged, within the time that threads have to end.
inline constexpr std::chrono::milliseconds kFinishTimeout{4000};
inline constexpr std::chrono::milliseconds kFinishPoll{5};
/// Acknowledged bytes that a TCP subscriber's kernel may still hold unread: its largest receive buffer by default.
inline constexpr uint64_t kMostUnreadBytes = 6u << 20;

/// Dials the subscriber, again and again when it is away, and writes samples back to back. Each connection begins with
/// a whole sample: one that a broken connection got in part is written again. A subscriber that ends its side is gone.
class StreamOutput : public Output {
 public:
  StreamOutput(Target target, SampleText text);

  WriteResult Write(const Subscription& subscription, const standin::Sample& sample) override;
  void Idle() override;
  void Cancel() override { cancelled_.Raise(); }
  void Finish(Deadline deadline) override;
  std::vector<Unconfirmed> TakeUnconfirmed() override;
  LinkStatus link() const override { return {up_, connects_, losses_}; }
  std::string name() const override { return target_.text; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Wait { kReady, kCancelled, kLate };

  bool Connected() const { return socket_.valid(); }
  bool Dial();
  void TryAgain();
  void PutOff();
  std::string TryToConnect();
  std::string ConnectTo(int family, const void* address, unsigned length);
  bool SendAll(std::string_view bytes);
  bool PeerIsThere(int sendError = 0);
  std::string Look(int sendError = 0);
  void Forget(uint64_t taken);
  void Lose(const std::string& reason);
  /// Waits for the events on the socket, or only for the time to pass while there is none.
  Wait WaitFor(short events, std::chrono::milliseconds time);

  /// A delivered sample that the subscriber may not have read.
  struct OnItsWay {
    uint64_t end;  ///< of the connection's bytes
    uint32_t taskId;
    uint32_t records;
  };

  const Target target_;
  const SampleText text_;
  standin::Signal cancelled_;
  standin::FileDescriptor socket_;  ///< invalid while the subscriber is away
  Clock::time_point nextTry_{};
  std::chrono::milliseconds retry_ = kFirstRetry;
  bool away_ = false;  ///< the failed attempts were logged
  uint64_t sent_ = 0;  ///< bytes on this connection
  std::deque<OnItsWay> onTheirWay_;
  uint64_t acknowledged_ = 0;  ///< of the bytes sent
  std::mutex unconfirmedMutex_;
  std::vector<Unconfirmed> unconfirmed_;
  std::atomic<bool> up_ = false;
  std::atomic<uint64_t> connects_ = 0;
  std::atomic<uint64_t> losses_ = 0;
};

}  // namespace tarq::host
