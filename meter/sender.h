// Sends statistics messages to the host, over one connection per kind.
#pragma once

#include <poll.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "meter/connection.h"
#include "meter/options.h"

namespace tarq::meter {

/// Order and names of the kinds in everything the meter shows.
enum class Kind : uint8_t { kFlow, kFlowHop, kNativeIp };
inline constexpr std::array kKinds{Kind::kFlow, Kind::kFlowHop, Kind::kNativeIp};
const char* NameOf(Kind kind);

/// Resolves `endpoint`'s host name; blocks while it does. Throws `StartFailure` when that cannot be done.
std::vector<SocketAddress> Resolve(const Endpoint& endpoint);

/// The way to the host. Nothing blocks but `Wait`, within its bound, and `WaitForRoom`. Used by one thread.
class Sender {
 public:
  /// `backlogBytes` bounds the memory of the frames that wait, all kinds together; each kind has a third of it.
  Sender(const Endpoint& endpoint, size_t backlogBytes);

  /// Takes one packed list with `records` records. Without room the kind's oldest messages are lost.
  void Queue(Kind kind, std::vector<uint8_t> list, uint32_t records);

  /// Waits until a list of `bytes` bytes has room, as long as the kind's host is not away and `stopDescriptor` is not
  /// readable.
  void WaitForRoom(Kind kind, size_t bytes, int stopDescriptor);

  /// Waits until one of `others` or a connection is ready, or `timeout` is over; then sends and connects as far as that
  /// goes. Fills in the `revents` of `others`.
  void Wait(std::chrono::milliseconds timeout, std::span<pollfd> others);

  /// Sends what is left within `linger` and, as long again, waits for the host to confirm it. What remains is given up.
  void Finish(std::chrono::milliseconds linger);

  const KindCounters& counters(Kind kind) const { return At(kind).counters(); }

 private:
  Connection& At(Kind kind) const { return *connections_[static_cast<size_t>(kind)]; }
  std::chrono::milliseconds UntilWake(std::chrono::milliseconds timeout) const;
  template <class Condition>
  void WaitWhile(Condition condition, std::chrono::milliseconds linger);

  // One connection per kind: a receiver may drop the rest of a batch of messages at the first one of a kind that nobody
  // has subscribed to, so a kind must not share its batches with another.
  std::array<std::unique_ptr<Connection>, kKinds.size()> connections_;
  std::vector<pollfd> descriptors_;
};

}  // namespace tarq::meter
