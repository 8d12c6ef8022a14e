// What ends the host: a signal, the end of its time, or a wake-up from within.
#pragma once

#include <chrono>
#include <csignal>
#include <optional>
#include <string_view>

namespace tarq::host {

/// Takes SIGINT, SIGTERM and, unless it is ignored, SIGHUP over for the process; SIGPIPE is ignored. To be made before
/// any other thread is started, and once.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Waits for a signal, for `Wake`, or for `duration` to pass. Returns the reason in words. From then on the
  /// second signal, the one that ended the wait included, ends the process at once.
  std::string_view Wait(std::optional<std::chrono::milliseconds> duration);

  /// Ends the wait. Any thread may call it, also before the wait has begun.
  void Wake();

 private:
  sigset_t set_;
  int signalFd_;
  int wakeFd_;
};

}  // namespace tarq::host
