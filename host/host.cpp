#include "host/host.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/delimited.h"
#include "host/directory_output.h"
#include "host/json_lines.h"
#include "host/log.h"
#include "host/metrics.h"
#include "host/port_check.h"
#include "host/stream_output.h"
#include "host/terminal_text.h"
#include "host/text_output.h"

namespace tarq::host {
namespace {

constexpr std::chrono::milliseconds kLookAgain{20};

Deadline After(std::chrono::milliseconds time) { return std::chrono::steady_clock::now() + time; }

std::chrono::milliseconds Left(Deadline deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return std::max(left, std::chrono::milliseconds{0});
}

SampleText TextOf(const OutputOptions& options) {
  bool terminal = options.target.kind == Target::Kind::kStandardOutput && isatty(STDOUT_FILENO);
  bool pretty = options.format == Format::kPretty || (options.format == Format::kAuto && terminal);
  return options.format == Format::kDelimited ? Delimited : pretty ? TerminalText : JsonLine;
}

std::unique_ptr<Output> MakeOutput(const OutputOptions& options) {
  switch (options.target.kind) {
    case Target::Kind::kStandardOutput:
      return std::make_unique<TextOutput>(STDOUT_FILENO, "standard output", TextOf(options));
    case Target::Kind::kDirectory:
      return std::make_unique<DirectoryOutput>(options.target.place);
    default:
      return std::make_unique<StreamOutput>(options.target, TextOf(options));
  }
}

bool QueueEmpty(std::string_view name) {
  return std::ranges::none_of(
      standin::Queues(), [name](const standin::QueueStatus& queue) { return queue.name == name && queue.depth > 0; });
}

/// Waits until the named queues are empty and the worker has finished what it took from them.
bool WaitQueuesServed(std::initializer_list<std::string_view> names, Deadline deadline) {
  while (standin::PassLoops(Left(deadline))) {
    if (std::ranges::all_of(names, QueueEmpty)) return standin::PassLoops(Left(deadline));
    if (Left(deadline).count() == 0) return false;
    std::this_thread::sleep_for(std::min(kLookAgain, Left(deadline)));
  }
  return false;
}

}  // namespace

Host::Host(Options options, StopSignals& signals)
    : options_(std::move(options)), delivery_(options_.queueBytes, [&signals] { signals.Wake(); }) {}

void Host::Start() try {
  OpenOutputs();
  if (!options_.portFile.empty()) portFile_.emplace(options_.portFile);
  module_.emplace(options_.module);
  CheckPort(options_.port);
  ServeMetrics();
  // Last of what can be refused: a database of an earlier run stays as it is until here.
  OpenDatabase();
  StartModule();
  AddTasks();
  Announce();
} catch (...) {
  Abandon();
  throw;
}

void Host::Abandon() {
  std::vector<std::string> ignored;
  StopModule(ignored);
  metrics_.reset();
  if (stopped_) standin::CloseDatabase();
  if (portFile_) portFile_->Remove();
  created_.TakeBack();
}

void Host::OpenOutputs() {
  for (const OutputOptions& output : options_.outputs) {
    if (output.target.kind == Target::Kind::kDirectory) created_.NoteDirectory(output.target.place);
    delivery_.AddOutput(MakeOutput(output), output.subscriptions);
  }
}

void Host::OpenDatabase() {
  if (options_.database.empty()) return;
  // SQLite has names of its own for what is no file; none of them is a path from the root.
  auto file = std::filesystem::absolute(options_.database);
  created_.CreateFile(file);
  std::string error = standin::OpenDatabase(file);
  if (!error.empty()) throw std::runtime_error("database: " + error);
}

void Host::ServeMetrics() {
  if (!options_.metricsPort) return;
  auto metrics = [this] {
    Accounts accounts = CollectAccounts(options_.subscriptions(), delivery_, failures_);
    accounts.droppedLogLines = DroppedLogLines();
    return MetricsText(accounts);
  };
  metrics_.emplace(*options_.metricsPort, metrics, [this] { return Ailment(); });
  spdlog::info("metrics at http://127.0.0.1:{}/metrics", metrics_->port());
}

std::string Host::Ailment() const {
  if (!serving_) return "starting, or winding down\n";
  std::string ailment;
  if (!standin::PassLoops(kHealthTimeout)) ailment += "the module's worker does not answer\n";
  for (const std::string& gone : delivery_.GoneOutputs()) ailment += gone + "\n";
  return ailment;
}

void Host::StartModule() {
  standin::SetLogHandler([this](uint32_t level, std::string_view text) {
    if (level == kLogFailure) failures_.Take(text);
    LogPlatformLine(level, text);
  });
  standin::SetSampleHandler([this](standin::Sample&& sample) { delivery_.Take(std::move(sample)); });
  standin::SetChannelPort(options_.port);
  uint32_t code = module_->Init(kModuleId);
  moduleStarted_ = code == 0;
  if (!moduleStarted_) {
    throw std::runtime_error(fmt::format("the module did not start, code {}; the log lines above say why", code));
  }
}

void Host::AddTasks() {
  for (const Subscription& subscription : options_.subscriptions()) {
    TaskDescription description{};
    description.codeType = subscription.encoding;
    description.sampleIntervalMs = subscription.intervalMs;
    if (standin::AddTask(subscription.kind->path, subscription.tlmId(), subscription.taskId(), description) != 0) {
      throw std::runtime_error(fmt::format("the module does not take subscription {}", subscription.text()));
    }
  }
  if (!WaitQueuesServed({kEventQueue}, After(kStartTimeout))) {
    throw std::runtime_error("the module did not take up its subscriptions in time");
  }
}

void Host::Announce() {
  uint16_t port = standin::ChannelPort();
  if (portFile_) portFile_->Write(port);
  spdlog::info("listening on 127.0.0.1:{}", port);
  serving_ = true;
}

Accounts Host::WindDown() {
  std::vector<std::string> faults;
  serving_ = false;
  if (portFile_) portFile_->Remove();
  Deadline deadline = After(options_.drainTimeout);
  if (!Collect(deadline)) faults.push_back("not everything was delivered within the drain timeout");
  StopModule(faults);
  metrics_.reset();
  Accounts accounts = CollectAccounts(options_.subscriptions(), delivery_, failures_);
  accounts.periods = standin::ReadPeriodTable();
  accounts.faults.insert(accounts.faults.end(), faults.begin(), faults.end());
  if (stopped_) standin::CloseDatabase();
  return accounts;
}

bool Host::Collect(Deadline deadline) {
  bool closed = standin::StopChannelIntake(Left(deadline));
  // The collection cycle empties the stats queue every third second.
  bool collected = WaitQueuesServed({kStatsQueue, kEventQueue}, deadline);
  bool handedOver = standin::WaitDelivered(Left(deadline));
  return delivery_.WaitIdle(deadline) && closed && collected && handedOver;
}

void Host::StopModule(std::vector<std::string>& faults) {
  Deadline deadline = After(kStopTimeout);
  if (moduleStarted_) module_->Destroy();
  bool joined = standin::JoinTasks(Left(deadline));
  if (!joined) faults.push_back("the module's worker did not end");
  standin::StopDelivery();
  bool written = delivery_.Stop(deadline);
  if (!written) faults.push_back("an output was still blocked in a write");
  stopped_ = joined && written;
}

}  // namespace tarq::host
