// tarq-meter: counts packets per flow and period and sends the counts to the host.
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <utility>

#include "meter/pipeline.h"
#include "meter/summary.h"

namespace tarq::meter {
namespace {

void SetUpLog(bool quiet) {
  auto logger = spdlog::stderr_logger_st("tarq-meter");
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %l %v");
  logger->set_level(quiet ? spdlog::level::warn : spdlog::level::info);
  spdlog::set_default_logger(std::move(logger));
}

std::optional<Capture> OpenCapture(const Options& options) {
  if (!options.interface.empty()) return Capture::OpenInterface(options);
  if (!options.pcapFile.empty()) return Capture::OpenFile(options);
  return std::nullopt;
}

bool Meter(const Options& options, std::optional<Capture> capture, Pipeline& pipeline) {
  if (!options.interface.empty()) return MeterInterface(options, *capture, pipeline);
  if (!options.pcapFile.empty()) return MeterFile(options, std::move(*capture), pipeline);
  return MeterSynthetic(options, pipeline);
}

ExitCode Run(const Options& options) {
  SetUpLog(options.quiet);
  std::optional<Capture> capture = OpenCapture(options);
  const StopRequest stop(options.duration);
  Pipeline pipeline(options, stop);
  const bool works = Meter(options, std::move(capture), pipeline);
  pipeline.sender().Finish(options.linger);
  const bool isComplete = works && IsComplete(pipeline.packets(), pipeline.sender());
  if (!options.quiet || !isComplete) {
    std::cerr << Summary(pipeline.packets(), pipeline.reporter(), pipeline.sender());
  }
  return isComplete ? kAllConfirmed : kIncomplete;
}

}  // namespace
}  // namespace tarq::meter

int main(int argc, char** argv) {
  using namespace tarq::meter;
  std::signal(SIGPIPE, SIG_IGN);  // Metering goes on when nobody reads the log any more.
  try {
    const auto options = ReadOptions(argc, argv);
    return options ? Run(*options) : kAllConfirmed;
  } catch (const StartFailure& failure) {
    std::cerr << "tarq-meter: " << failure.what() << '\n';
    return failure.code;
  } catch (const std::exception& error) {
    std::cerr << "tarq-meter: " << error.what() << '\n';
    return kIncomplete;
  }
}
