// The host as a process, with the subscriptions that are measured.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "tests/support/books.h"

namespace tarq::load {

/// Runs the host's program with every kind in JSON lines to one socket and in delimited GPB to another.
class Host {
 public:
  /// `folder` gets its files; `queueBytes` bounds its queues. Throws `std::runtime_error` when it does not
  /// start.
  Host(const std::string& program, const std::string& folder, const std::string& jsonSocket,
       const std::string& gpbSocket, size_t queueBytes);
  /// Kills it, unless it has been stopped.
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  uint16_t port() const { return port_; }
  /// Resident memory in bytes.
  uint64_t memory() const;
  test::Books Metrics() const;
  /// Ends it in order; its exit code.
  int Stop();

 private:
  std::string ErrorFile() const { return folder_ + "/host.err"; }

  std::string folder_;
  pid_t pid_ = 0;
  uint16_t port_ = 0;
  std::string metrics_;  ///< URL
};

}  // namespace tarq::load
