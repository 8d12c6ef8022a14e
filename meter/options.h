// The command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace tarq::meter {

/// Exit codes, as `--help` lists them.
enum ExitCode : int { kAllConfirmed = 0, kIncomplete = 1, kBadUsage = 2, kNotPermitted = 3 };

/// What keeps the meter from starting: text for the user, and the exit code that goes with it.
struct StartFailure : std::runtime_error {
  StartFailure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}
  ExitCode code;
};

struct Endpoint {
  std::string host;
  uint16_t port;
};

/// Takes `HOST:PORT` or `[IPV6]:PORT` apart; nothing when it is neither.
std::optional<Endpoint> ParseEndpoint(const std::string& text);

struct Options {
  Endpoint channel;

  // Where packets come from: exactly one of the three is set.
  std::string interface;
  std::string pcapFile;
  uint32_t syntheticFlows = 0;

  std::string filter;
  bool promiscuous = false;
  uint32_t bufferMib = 16;

  bool paceReal = false;
  uint32_t loops = 1;

  uint64_t seed = 1;
  uint64_t rounds = 0;            ///< `--periods`; 0 for no end
  uint32_t recordsPerSecond = 0;  ///< `--rate`; 0 for one round per period

  uint32_t periodSeconds = 10;
  uint32_t maxFlows = 1'000'000;
  uint32_t messageBytes = 61440;
  uint32_t backlogMib = 64;
  std::chrono::milliseconds linger{5000};
  std::chrono::milliseconds duration{0};  ///< 0 for no end
  bool quiet = false;
};

/// Reads the command line. Returns nothing when it asked for help or the version, which are then printed.
/// Throws `StartFailure` for anything that cannot be meant.
std::optional<Options> ReadOptions(int argc, char** argv);

}  // namespace tarq::meter
