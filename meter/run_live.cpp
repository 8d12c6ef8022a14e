// Packets of an interface, as they pass.
#include <spdlog/spdlog.h>

#include <array>

#include "meter/pipeline.h"

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

/// A period is closed this long after its end: packets are handed over up to `kHandOverMs` after their time stamp.
constexpr milliseconds kPeriodGrace{2 * kHandOverMs + 50};
/// Packets read at most before the host and the clock get their turn.
constexpr int kPacketsPerTurn = 4096;

milliseconds UntilPeriodClose(const PeriodMeter& periods) {
  const auto end = periods.EndSecond();
  if (!end) return std::chrono::minutes{1};
  const auto close = system_clock::time_point(std::chrono::seconds(*end)) + kPeriodGrace;
  return std::chrono::ceil<milliseconds>(close - system_clock::now());
}

void ClosePeriodByClock(PeriodMeter& periods) {
  const auto time = (system_clock::now() - kPeriodGrace).time_since_epoch();
  periods.CloseIfOver(static_cast<uint64_t>(std::chrono::floor<std::chrono::seconds>(time).count()));
}

/// Reads what is there, within a turn's limit. False when reading failed.
bool ReadTurn(Capture& capture, Pipeline& pipeline) {
  CapturedPacket packet;
  for (int i = 0; i < kPacketsPerTurn; ++i) {
    const ReadResult result = capture.Read(packet);
    if (result == ReadResult::kFailed) spdlog::error("capturing failed: {}", capture.Error());
    if (result != ReadResult::kPacket) return result != ReadResult::kFailed;
    pipeline.Count(capture.linkType(), packet);
  }
  return true;
}

bool Turn(Capture& capture, Pipeline& pipeline, milliseconds timeout, int stopDescriptor) {
  std::array<pollfd, 2> descriptors{pollfd{capture.descriptor(), POLLIN, 0}, pollfd{stopDescriptor, POLLIN, 0}};
  pipeline.sender().Wait(timeout, descriptors);
  return ReadTurn(capture, pipeline);
}

/// Reads what had passed before the stop but was not handed over yet.
bool ReadRest(Capture& capture, Pipeline& pipeline) {
  const auto end = Clock::now() + milliseconds{2 * kHandOverMs};
  while (Clock::now() < end) {
    if (!Turn(capture, pipeline, std::chrono::ceil<milliseconds>(end - Clock::now()), -1)) return false;
  }
  return true;
}

}  // namespace

bool MeterInterface(const Options& options, Capture& capture, Pipeline& pipeline) {
  spdlog::info("capturing on {}, period {} s", options.interface, options.periodSeconds);
  bool works = true;
  while (works && !pipeline.stop().requested()) {
    works = Turn(capture, pipeline, UntilPeriodClose(pipeline.periods()), pipeline.stop().descriptor());
    ClosePeriodByClock(pipeline.periods());
  }
  if (works) works = ReadRest(capture, pipeline);
  pipeline.packets().kernelDrops = capture.KernelDrops();
  pipeline.periods().Close();
  return works;
}

}  // namespace tarq::meter
