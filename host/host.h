// The course of a run.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/accounts.h"
#include "host/created_paths.h"
#include "host/delivery.h"
#include "host/metrics_server.h"
#include "host/module_failures.h"
#include "host/module_loader.h"
#include "host/options.h"
#include "host/port_file.h"
#include "host/stop_signals.h"

namespace tarq::host {

/// Identifier under which the module is started.
inline constexpr uint32_t kModuleId = 1;
/// Time for the module to take up its tasks at the start.
inline constexpr std::chrono::seconds kStartTimeout{10};
/// Time for the worker to answer before the host counts as unwell.
inline constexpr std::chrono::seconds kHealthTimeout{2};

/// One module with its platform, subscriptions and outputs. One per process, used by one thread.
class Host {
 public:
  /// `signals` is woken when an output is gone.
  Host(Options options, StopSignals& signals);

  /// Opens everything and starts the module. Throws `std::runtime_error` with value and remedy (other exceptions where
  /// memory or threads run out); what had been started is stopped and what had been created is removed by then. A
  /// database that existed is opened last, once only the module itself can fail.
  void Start();

  /// Takes no more messages, has what was accepted collected and delivered within the drain timeout, and stops
  /// everything. Tasks are not deleted: deleting a kind's last one would empty the period table.
  Accounts WindDown();

  /// False when a thread did not end: then the process must end without destroying this object.
  bool stopped() const { return stopped_; }

 private:
  void Abandon();
  void OpenOutputs();
  void OpenDatabase();
  void ServeMetrics();
  std::string Ailment() const;
  void StartModule();
  void AddTasks();
  void Announce();
  bool Collect(Deadline deadline);
  void StopModule(std::vector<std::string>& faults);

  Options options_;
  Delivery delivery_;
  FailureLines failures_;
  CreatedPaths created_;
  std::optional<PortFile> portFile_;
  std::optional<Module> module_;
  bool moduleStarted_ = false;
  bool stopped_ = false;
  std::atomic<bool> serving_ = false;  ///< between start and wind-down
  std::optional<MetricsServer> metrics_;
};

}  // namespace tarq::host
