// What an output is called on the command line.
#pragma once

#include <string>

namespace tarq::host {

/// Where an output's samples go.
struct Target {
  enum class Kind { kStandardOutput, kDirectory, kTcp, kUnix };

  Kind kind = Kind::kStandardOutput;
  std::string text = "-";  ///< as it was given
  std::string place;       ///< directory, host name or address, or socket path
  std::string port;        ///< of a TCP target

  bool stream() const { return kind == Kind::kTcp || kind == Kind::kUnix; }
};

/// Reads "-", "tcp:HOST:PORT" (an IPv6 address in brackets), "unix:PATH", or the name of a directory. Throws
/// `std::invalid_argument` with value and remedy.
Target ParseTarget(const std::string& text);

}  // namespace tarq::host
