// Packets of an interface, as they pass.
#include <spdlog/spdlog.h>

#include <array>

#include "meter/pipeline.h"

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

/// A period is closed this long after its end, once no packet waits any more: packets are handed over up to
/// `kHandOverMs` after their time stamp.
constexpr milliseconds kPeriodGrace{2 * kHandOverMs + 50};
/// Packets read at most before the host and the clock get their turn.
constexpr int kPacketsPerTurn = 4096;

milliseconds UntilPeriodClose(const PeriodMeter& periods) {
  const auto end = periods.FirstEnd();
  if (!end) return std::chrono::minutes{1};
  const auto close = system_clock::time_point(std::chrono::seconds(*end)) + kPeriodGrace;
  return std::chrono::ceil<milliseconds>(close - system_clock::now());
}

void ClosePeriodsByClock(PeriodMeter& periods, milliseconds grace) {
  const auto time = (system_clock::now() - grace).time_since_epoch();
  periods.CloseOver(static_cast<uint64_t>(std::chrono::floor<std::chrono::seconds>(time).count()));
}

/// Reads what is there, within a turn's limit. The last result: `kPacket` when more may wait.
ReadResult ReadTurn(Capture& capture, Pipeline& pipeline) {
  CapturedPacket packet;
  for (int i = 0; i < kPacketsPerTurn; ++i) {
    const ReadResult result = capture.Read(packet);
    if (result == ReadResult::kFailed) spdlog::error("capturing failed: {}", capture.Error());
    if (result != ReadResult::kPacket) return result;
    pipeline.Count(capture.linkType(), packet);
  }
  return ReadResult::kPacket;
}

ReadResult Turn(Capture& capture, Pipeline& pipeline, milliseconds timeout, int stopDescriptor) {
  std::array<pollfd, 2> descriptors{pollfd{capture.descriptor(), POLLIN, 0}, pollfd{stopDescriptor, POLLIN, 0}};
  pipeline.sender().Wait(timeout, descriptors);
  return ReadTurn(capture, pipeline);
}

/// Reads what had passed before the stop but was not handed over yet.
bool ReadRest(Capture& capture, Pipeline& pipeline) {
  const auto end = Clock::now() + milliseconds{2 * kHandOverMs};
  while (Clock::now() < end) {
    const auto rest = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (Turn(capture, pipeline, rest, -1) == ReadResult::kFailed) return false;
  }
  return true;
}

}  // namespace

bool MeterInterface(const Options& options, Capture& capture, Pipeline& pipeline) {
  spdlog::info("capturing on {}, period {} s", options.interface, options.periodSeconds);
  const std::chrono::seconds period{options.periodSeconds};
  bool works = true;
  while (works && !pipeline.stop().requested()) {
    const ReadResult last = Turn(capture, pipeline, UntilPeriodClose(pipeline.periods()), pipeline.stop().descriptor());
    works = last != ReadResult::kFailed;
    // Packets that still wait may belong to a period that is over; it stays open for them, for one period at most.
    const bool mayWait = last == ReadResult::kPacket;
    ClosePeriodsByClock(pipeline.periods(), mayWait ? kPeriodGrace + period : kPeriodGrace);
  }
  if (works) works = ReadRest(capture, pipeline);
  pipeline.packets().kernelDrops = capture.KernelDrops();
  pipeline.End();
  return works;
}

}  // namespace tarq::meter
