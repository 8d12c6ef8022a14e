#include "host/host.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/directory_output.h"
#include "host/json_lines.h"
#include "host/log.h"
#include "host/port_file.h"
#include "host/terminal_text.h"
#include "host/text_output.h"
#include "standin/packed_list.h"

namespace tarq::host {
namespace {

constexpr std::chrono::milliseconds kLookAgain{20};

Deadline After(std::chrono::milliseconds time) { return std::chrono::steady_clock::now() + time; }

std::chrono::milliseconds Left(Deadline deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return std::max(left, std::chrono::milliseconds{0});
}

std::unique_ptr<Output> MakeOutput(const Options& options) {
  if (options.output != "-") return std::make_unique<DirectoryOutput>(options.output);
  bool pretty = options.format == Format::kPretty || (options.format == Format::kAuto && isatty(STDOUT_FILENO));
  return std::make_unique<TextOutput>(STDOUT_FILENO, "standard output", pretty ? TerminalText : JsonLine);
}

bool PortTaken(uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int reuse = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  bool taken = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 && errno == EADDRINUSE;
  close(fd);
  return taken;
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

void Host::Start() {
  try {
    OpenOutput();
    OpenDatabase();
    StartModule();
    AddTasks();
    Announce();
    created_.Keep();
  } catch (const std::runtime_error&) {
    std::vector<std::string> ignored;
    StopModule(ignored);
    throw;
  }
}

void Host::OpenOutput() {
  if (options_.output != "-") created_.Note(options_.output);
  delivery_.AddOutput(MakeOutput(options_), options_.subscriptions);
}

void Host::OpenDatabase() {
  if (options_.database.empty()) return;
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) created_.Note(options_.database + suffix);
  std::string error = standin::OpenDatabase(options_.database);
  if (!error.empty()) throw std::runtime_error("database: " + error);
}

void Host::StartModule() {
  standin::SetLogHandler(LogPlatformLine);
  standin::SetSampleHandler([this](standin::Sample&& sample) { delivery_.Take(std::move(sample)); });
  if (options_.port) standin::SetChannelPort(*options_.port);
  module_.emplace(options_.module);
  uint32_t code = module_->Init(kModuleId);
  moduleStarted_ = code == 0;
  if (moduleStarted_) return;
  uint16_t port = options_.port.value_or(wire::kDefaultChannelPort);
  if (port != 0 && PortTaken(port)) {
    throw std::runtime_error(fmt::format("port {} of 127.0.0.1 is taken; name another with --port, or 0", port));
  }
  throw std::runtime_error(fmt::format("the module did not start, code {}; the log lines above say why", code));
}

void Host::AddTasks() {
  for (const Subscription& subscription : options_.subscriptions) {
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
  if (!options_.portFile.empty()) WritePortFile(options_.portFile, port);
  spdlog::info("listening on 127.0.0.1:{}", port);
}

Accounts Host::WindDown() {
  std::vector<std::string> faults;
  Deadline deadline = After(options_.drainTimeout);
  if (!Collect(deadline)) faults.push_back("not everything was delivered within the drain timeout");
  StopModule(faults);
  Accounts accounts = CollectAccounts(options_.subscriptions, delivery_);
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
