// A data plane that offers records at a rate and does not wait.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>

#include "load/traffic.h"

namespace tarq::load {

struct Offered {
  uint64_t records = 0;  ///< made, all kinds
  uint64_t lost = 0;     ///< of these: dropped by a full backlog, or never sent
};

/// Sends messages of the three kinds in turn, over a connection each.
class Sender {
 public:
  /// Connects to the channel on that port of 127.0.0.1. Throws `std::system_error`.
  explicit Sender(uint16_t port);
  ~Sender();
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  /// Offers `rate` records per second for that time. What the channel does not take waits, up to the records of one
  /// second; beyond that messages are lost. Returns when the backlog is sent, or 1 s later.
  Offered Run(double rate, std::chrono::duration<double> time);

 private:
  struct Lane {
    int socket = -1;
    std::deque<const std::string*> backlog;
    size_t sent = 0;  ///< bytes of the first that are out
    size_t next = 0;  ///< frame that is offered next
  };
  void Offer(size_t maxBacklog, Offered& offered);
  void Push(Lane& lane);
  void ChangePeriod();

  /// Two sets: the one that is not in use goes into the next period while the other may still wait to be sent.
  std::array<std::array<Frames, kKindCount>, 2> traffic_{MakeTraffic(), MakeTraffic()};
  size_t set_ = 0;
  uint64_t period_;
  std::array<Lane, kKindCount> lanes_;
  size_t turn_ = 0;
};

}  // namespace tarq::load
