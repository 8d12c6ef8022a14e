// Where samples go.
#pragma once

#include <string>

#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

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

/// One place that samples go to. Its constructor opens it and throws `std::runtime_error` with value and remedy where
/// it cannot be opened. Its functions are called by one thread at a time and may block.
class Output {
 public:
  virtual ~Output() = default;

  /// Delivers one sample, the subscription's.
  virtual WriteResult Write(const Subscription& subscription, const standin::Sample& sample) = 0;

  /// How messages call it, for example "standard output".
  virtual std::string name() const = 0;
};

}  // namespace tarq::host
