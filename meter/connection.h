// One connection to the host's channel server, with the messages that wait for it.
#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "standin/packed_list.h"

namespace tarq::meter {

using Clock = std::chrono::steady_clock;

struct Tally {
  uint64_t messages = 0;
  uint64_t records = 0;

  void Add(uint64_t moreMessages, uint64_t moreRecords) { messages += moreMessages, records += moreRecords; }
};

/// What became of one kind's messages. After the end, made = sent + lost.
struct KindCounters {
  Tally made;
  Tally sent;         ///< written whole to a connection
  Tally lost;         ///< dropped from a full backlog, or left at the end
  Tally unconfirmed;  ///< sent, on a connection that ended before the host confirmed it by closing after us
};

/// A resolved address to connect to.
struct SocketAddress {
  sockaddr_storage storage;
  socklen_t length;
};

/// Pause before connecting again: the first, doubled after each failure up to the second.
inline constexpr std::chrono::milliseconds kFirstRetryPause{100};
inline constexpr std::chrono::milliseconds kLongestRetryPause{2000};
/// A connection attempt that takes longer has failed.
inline constexpr std::chrono::milliseconds kConnectTimeout{2000};
/// Nothing is sent on a new connection for this long, so that a host that accepts only to close again takes no message.
inline constexpr std::chrono::milliseconds kSettleTime{100};
/// A connection that has lived this long, or was confirmed, is good: it is logged, and the retry pause starts anew.
inline constexpr std::chrono::milliseconds kProvenAfter{2000};

/// A message on its way: what goes over the wire is the header, then the list.
struct Frame {
  wire::FrameHeader header;
  std::vector<uint8_t> list;
  uint32_t records;

  size_t wireBytes() const { return sizeof header + list.size(); }
  size_t heldBytes() const { return sizeof(Frame) + list.capacity(); }
};

/// Sends frames over TCP and connects again whenever the connection breaks. A frame that was written in part goes
/// again, whole, over the next connection. Never blocks; driven by whoever polls its socket. Used by one thread.
class Connection {
 public:
  /// `label` names it in log lines. `addresses`, never empty, are tried in turn. The frames that wait hold at most
  /// `backlogBytes` of memory, or are a single one.
  Connection(std::string label, std::vector<SocketAddress> addresses, size_t backlogBytes);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Takes a frame. Without room the oldest frames that are not yet begun are dropped.
  void Queue(Frame frame);

  /// Whether a frame with a list of `listBytes` has room.
  bool HasRoom(size_t listBytes) const {
    return queue_.empty() || queuedBytes_ + sizeof(Frame) + listBytes <= backlogBytes_;
  }
  /// Whether the last attempt to reach the host failed, or its connection broke.
  bool away() const { return away_; }
  bool hasUnsent() const { return !queue_.empty(); }
  /// Whether the host's confirmation is awaited.
  bool isFinishing() const { return state_ == State::kFinishing; }
  const KindCounters& counters() const { return counters_; }

  /// What to poll for; no descriptor while there is none.
  pollfd Interest() const;
  /// When `Handle` must be called even though nothing is ready.
  std::optional<Clock::time_point> WakeAt() const;
  /// Does whatever can be done now; `revents` is what poll found ready.
  void Handle(short revents, Clock::time_point now);

  /// Takes no more frames; once all are sent, ends our direction and waits for the host to end its own.
  void BeginFinish();
  /// Gives up: what still waits is lost, what the host has not confirmed is unconfirmed.
  void Abandon();

 private:
  enum class State { kWaiting, kConnecting, kSettling, kOpen, kFinishing, kFinished };

  void Connect(Clock::time_point now);
  void FinishConnecting(Clock::time_point now);
  void Connected(Clock::time_point now);
  void Age(Clock::time_point now);
  void Proven();
  void Read(Clock::time_point now);
  void Write(Clock::time_point now);
  void FinishIfSent(Clock::time_point now);
  void DropForRoom(size_t bytes);
  void LoseFrame(std::deque<Frame>::iterator frame);
  void EndedByHost(Clock::time_point now);
  void Broken(const std::string& reason, Clock::time_point now);
  void Close();

  const std::string label_;
  const std::vector<SocketAddress> addresses_;
  const size_t backlogBytes_;

  State state_ = State::kWaiting;
  int socket_ = -1;
  size_t nextAddress_ = 0;
  size_t addressesTried_ = 0;     // since a connection was last open, in this round
  Clock::time_point deadline_{};  // of the pause, the attempt, the settling or the proving
  std::chrono::milliseconds pause_ = kFirstRetryPause;
  bool proven_ = false;  // the present connection
  bool away_ = false;
  bool saidAway_ = false;  // logged, with no proven connection since
  bool finish_ = false;

  std::deque<Frame> queue_;
  size_t queuedBytes_ = 0;  // of memory
  size_t written_ = 0;      // bytes of the first frame, its header included
  Tally sentHere_;          // over the present connection
  KindCounters counters_;
};

}  // namespace tarq::meter
