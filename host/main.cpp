// tarq-host: loads the module, keeps its subscriptions and delivers their samples.
#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <variant>

#include "host/host.h"
#include "host/log.h"
#include "host/options.h"
#include "host/stop_signals.h"
#include "host/summary.h"

namespace tarq::host {
namespace {

/// Opens what the shell left closed, so that no file takes the place of a standard stream. False when that was standard
/// output.
bool KeepStandardStreams() {
  bool hasOutput = fcntl(STDOUT_FILENO, F_GETFD) >= 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);
  }
  return hasOutput;
}

/// Returns the exit code: never 0 when what was asked for could not be said.
int Say(const EarlyExit& exit) {
  FILE* stream = exit.code == 0 ? stdout : stderr;
  bool said = std::fputs(exit.text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
  return said ? exit.code : std::max(exit.code, 1);
}

/// Ends logging and says the last words, made from the number of log lines that were dropped, on standard error.
/// Returns the exit code, or ends the process without destructors: where nobody reads standard error within
/// `kStopTimeout`, and where a thread may still use what destructors would destroy.
int Leave(const Host& host, int code, const std::function<std::string(uint64_t)>& lastWords) {
  std::promise<void> said;
  auto heard = said.get_future();
  std::thread speaker([&] {
    std::fputs(lastWords(StopLog(host.stopped())).c_str(), stderr);
    said.set_value();
  });
  if (heard.wait_for(kStopTimeout) != std::future_status::ready || !host.stopped()) _exit(code);
  speaker.join();
  return code;
}

int Run(const Options& options) {
  StopSignals signals;
  StartLog(options.logLevel);
  Host host(options, signals);
  try {
    host.Start();
  } catch (const std::exception& error) {
    return Leave(host, 2, [&error](uint64_t) { return fmt::format("tarq-host: {}\n", error.what()); });
  }
  spdlog::info("winding down: {}", signals.Wait(options.duration));
  Accounts accounts = host.WindDown();
  return Leave(host, accounts.Losses().empty() ? 0 : 1, [&accounts](uint64_t droppedLines) {
    accounts.droppedLogLines = droppedLines;
    return SummaryText(accounts);
  });
}

int Main(int argc, char** argv) {
  bool hasOutput = KeepStandardStreams();
  auto parsed = ParseOptions(argc, argv);
  if (auto* exit = std::get_if<EarlyExit>(&parsed)) return Say(*exit);
  const auto& options = std::get<Options>(parsed);
  bool wantsOutput = std::ranges::any_of(
      options.outputs, [](const OutputOptions& output) { return output.target.kind == Target::Kind::kStandardOutput; });
  if (wantsOutput && !hasOutput) {
    return Say({2, "tarq-host: standard output is closed; name another --output\n"});
  }
  return Run(options);
}

}  // namespace
}  // namespace tarq::host

int main(int argc, char** argv) { return tarq::host::Main(argc, argv); }
