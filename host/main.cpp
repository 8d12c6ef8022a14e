// tarq-host: loads the module, keeps its subscriptions and delivers their samples.
#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
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

int Say(const EarlyExit& exit) {
  std::fputs(exit.text.c_str(), exit.code == 0 ? stdout : stderr);
  return exit.code;
}

/// Ends the process without destructors where a thread may still use what they would destroy.
int Leave(const Host& host, int code) {
  std::fflush(nullptr);
  if (!host.stopped()) _exit(code);
  return code;
}

int Run(const Options& options) {
  StopSignals signals;
  StartLog(options.logLevel);
  Host host(options, signals);
  try {
    host.Start();
  } catch (const std::exception& error) {
    StopLog();
    Say({2, fmt::format("tarq-host: {}\n", error.what())});
    return Leave(host, 2);
  }
  spdlog::info("winding down: {}", signals.Wait(options.duration));
  Accounts accounts = host.WindDown();
  accounts.droppedLogLines = StopLog();
  std::fputs(SummaryText(accounts).c_str(), stderr);
  return Leave(host, accounts.Losses().empty() ? 0 : 1);
}

int Main(int argc, char** argv) {
  bool hasOutput = KeepStandardStreams();
  auto parsed = ParseOptions(argc, argv);
  if (auto* exit = std::get_if<EarlyExit>(&parsed)) return Say(*exit);
  const auto& options = std::get<Options>(parsed);
  if (options.output == "-" && !hasOutput) {
    return Say({2, "tarq-host: standard output is closed; name a directory with --output\n"});
  }
  return Run(options);
}

}  // namespace
}  // namespace tarq::host

int main(int argc, char** argv) { return tarq::host::Main(argc, argv); }
