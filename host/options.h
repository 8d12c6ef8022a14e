// The command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/delivery.h"
#include "host/subscriptions.h"
#include "host/target.h"

namespace tarq::host {

inline constexpr std::chrono::seconds kDefaultDrainTimeout{10};
inline constexpr double kMaxDrainSeconds = 3600;
/// Time for threads to end after the drain, and again for the last lines to be read.
inline constexpr std::chrono::seconds kStopTimeout{5};
/// Longest `--duration`: ten years.
inline constexpr double kMaxDurationSeconds = 10 * 366 * 86400.0;

/// Outputs of one host at most.
inline constexpr size_t kMaxOutputs = 16;

enum class Format {
  kAuto,       ///< readable on a terminal, JSON lines elsewhere
  kLines,      ///< JSON lines
  kPretty,     ///< readable
  kDelimited,  ///< GPB samples with their lengths
};

/// One output and what it gets.
struct OutputOptions {
  Target target;
  Format format = Format::kAuto;
  std::vector<Subscription> subscriptions;  ///< numbered over all outputs
};

struct Options {
  std::vector<OutputOptions> outputs;
  std::string database;  ///< SQLite file; memory when empty
  std::string logLevel = "info";
  std::optional<std::chrono::milliseconds> duration;
  std::string module;                   ///< found by itself when empty
  uint16_t port = 0;                    ///< 0 for a free one
  std::string portFile;                 ///< none when empty
  std::optional<uint16_t> metricsPort;  ///< 0 for a free one; no metrics when unset
  size_t queueBytes = kDefaultQueueBytes;
  std::chrono::milliseconds drainTimeout = kDefaultDrainTimeout;

  /// Of all outputs, in the order of their numbers.
  std::vector<Subscription> subscriptions() const;
};

/// What the program says and returns instead of running.
struct EarlyExit {
  int code;          ///< 0 for help and version, 2 for bad usage
  std::string text;  ///< for standard output with code 0, else one line for standard error
};

/// Names the channel's port where --port does not; empty is as good as unset.
inline constexpr const char* kPortVariable = "TARQ_CHANNEL_PORT";

/// Reads the command line, and `kPortVariable` of the environment.
std::variant<Options, EarlyExit> ParseOptions(int argc, const char* const* argv);

}  // namespace tarq::host
