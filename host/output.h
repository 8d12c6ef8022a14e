// Where samples go.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

using standin::SampleCount;

using Deadline = std::chrono::steady_clock::time_point;

/// Makes the bytes of one sample for an output that writes samples one after the other.
using SampleText = std::function<std::string(const Subscription&, const standin::Sample&)>;

/// What became of one sample.
struct WriteResult {
  enum class Outcome {
    kDelivered,
    kFailed,  ///< this sample is lost; the next may go through
    kGone,    ///< this sample is lost, and so will be all others
  };
  Outcome outcome = Outcome::kDelivered;
  std::string reason;  ///< what went wrong; empty when delivered
};

/// Samples of one subscription that were delivered, and perhaps never arrived.
struct Unconfirmed {
  uint32_t taskId;
  SampleCount count;
};

/// How an output that dials is getting on.
struct LinkStatus {
  bool up = true;
  uint64_t connects = 0;
  uint64_t losses = 0;
};

/// One place that samples go to. Its constructor opens it and throws `std::runtime_error` with value and remedy where
/// it cannot be opened. Its functions are called by one thread at a time and may block, where nothing else is said.
class Output {
 public:
  virtual ~Output() = default;

  /// Delivers one sample, the subscription's.
  virtual WriteResult Write(const Subscription& subscription, const standin::Sample& sample) = 0;

  /// Has a look round while there is nothing to write. Called a few times a second.
  virtual void Idle() {}

  /// Makes a `Write` or `Idle` that blocks return soon, the sample failed, and all later ones. Any thread, any time.
  virtual void Cancel() {}

  /// Ends in order, after the last write: makes sure of what was delivered, as long as `deadline` allows.
  virtual void Finish(Deadline /*deadline*/) {}

  /// Takes what has become unconfirmed since the last call. Any thread, any time.
  virtual std::vector<Unconfirmed> TakeUnconfirmed() { return {}; }

  /// Any thread, any time.
  virtual LinkStatus link() const { return {}; }

  /// How messages call it, for example "standard output". Any thread, any time.
  virtual std::string name() const = 0;
};

}  // namespace tarq::host
