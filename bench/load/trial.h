// One run of sender, host and readers, and its books.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace tarq::load {

using Seconds = std::chrono::duration<double>;

struct Setup {
  std::string host;    ///< the host's program
  std::string folder;  ///< for sockets and files
  size_t queueBytes;   ///< bound of each of the host's queues
  double rate;         ///< records per second over all kinds
  Seconds time;
  Seconds stall{0};  ///< how long the reader of JSON does not read, beginning 2 s after the start
};

/// What became of the records. Those of the JSON and of the GPB subscriptions are counted apart.
struct Result {
  uint64_t offered = 0;
  uint64_t lostBySender = 0;                 ///< its backlog was full: the channel held it back
  uint64_t lostByHost = 0;                   ///< by the stats queue, before it, when unpacked or refused by an encoder
  uint64_t json = 0, gpb = 0;                ///< delivered
  uint64_t jsonDropped = 0, gpbDropped = 0;  ///< by full queues
  bool readersAgree = false;                 ///< the readers got as many samples as the host says it delivered
  bool late = false;  ///< the host needed more than a collection period to deliver the last records
  uint64_t memoryBefore = 0, memoryPeak = 0, memoryAfter = 0;  ///< resident bytes of the host
  Seconds longestEvent{0};
  std::string imbalance;  ///< of the books; empty when they balance
  int exitCode = 0;

  /// Records that did not get to both readers.
  uint64_t lost() const;
  double lossPercent() const;
};

/// Called every second of a run, with the host's resident bytes.
using EverySecond = std::function<void(Seconds passed, uint64_t memory)>;

/// Runs a fresh host. Throws `std::runtime_error` when that is not possible.
Result Run(const Setup& setup, const EverySecond& everySecond = {});

}  // namespace tarq::load
