// Packets of a capture file, once or again and again.
#include <spdlog/spdlog.h>

#include <algorithm>
#include <optional>

#include "meter/pipeline.h"

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;

/// Packets between two looks at the host while the file is read as fast as it goes.
constexpr uint64_t kPacketsPerTurn = 16384;

std::chrono::nanoseconds SinceEpoch(Timestamp time) {
  return std::chrono::seconds(time.second) + std::chrono::nanoseconds(time.nanosecond);
}

/// Keeps the capture's own timing: the first packet comes at once, every other as long after it as its time stamp says.
class Pace {
 public:
  explicit Pace(Pipeline& pipeline) : pipeline_(pipeline) {}

  /// Waits until `time` has come, closing the open period when it ends before. False when stopped.
  bool WaitFor(Timestamp time) {
    if (!first_) first_ = time;
    const auto periodEnd = pipeline_.periods().EndSecond();
    if (periodEnd && *periodEnd <= time.second) {
      if (!WaitUntil({*periodEnd, 0})) return false;
      pipeline_.periods().CloseIfOver(*periodEnd);
    }
    return WaitUntil(time);
  }

 private:
  bool WaitUntil(Timestamp time) {
    const auto due = start_ + (SinceEpoch(time) - SinceEpoch(*first_));
    return pipeline_.WaitUntilOver([due] { return std::chrono::ceil<milliseconds>(due - Clock::now()); });
  }

  Pipeline& pipeline_;
  const Clock::time_point start_ = Clock::now();
  std::optional<Timestamp> first_;
};

/// First and last time stamp of a capture.
struct Span {
  Timestamp first{UINT64_MAX, 0};
  Timestamp last{0, 0};

  void Include(Timestamp time) {
    first = std::min(first, time);
    last = std::max(last, time);
  }

  /// Seconds by which the next pass over the capture is later: the span in whole periods, rounded up, at least one.
  uint64_t Shift(uint32_t periodSeconds) const {
    if (first.second > last.second) return periodSeconds;
    const uint64_t seconds = last.second - first.second + (last.nanosecond > first.nanosecond ? 1 : 0);
    return std::max<uint64_t>((seconds + periodSeconds - 1) / periodSeconds, 1) * periodSeconds;
  }
};

class Replay {
 public:
  Replay(const Options& options, Pipeline& pipeline)
      : pipeline_(pipeline), isPaced_(options.paceReal), pace_(pipeline) {}

  /// Counts every packet, `shiftSeconds` later than it says. False when reading failed.
  bool Pass(Capture& capture, uint64_t shiftSeconds) {
    CapturedPacket packet;
    while (!pipeline_.stop().requested()) {
      const ReadResult result = capture.Read(packet);
      if (result == ReadResult::kEnd || pipeline_.stop().requested()) break;
      if (result != ReadResult::kPacket) {
        spdlog::error("reading the capture failed: {}", capture.Error());
        return false;
      }
      span_.Include(packet.time);
      packet.time.second += shiftSeconds;
      if (!Paced(packet.time)) break;
      pipeline_.Count(capture.linkType(), packet);
    }
    return true;
  }

  const Span& span() const { return span_; }

 private:
  bool Paced(Timestamp time) {
    if (isPaced_) return pace_.WaitFor(time);
    if (pipeline_.packets().seen % kPacketsPerTurn == 0) pipeline_.sender().Wait(milliseconds{0}, {});
    return true;
  }

  Pipeline& pipeline_;
  const bool isPaced_;
  Pace pace_;
  Span span_;
};

}  // namespace

bool MeterFile(const Options& options, Capture capture, Pipeline& pipeline) {
  spdlog::info("replaying {}, period {} s", options.pcapFile, options.periodSeconds);
  Replay replay(options, pipeline);
  bool works = replay.Pass(capture, 0);
  const uint64_t shift = replay.span().Shift(options.periodSeconds);
  for (uint32_t pass = 1; works && pass < options.loops && !pipeline.stop().requested(); ++pass) {
    try {
      capture = Capture::OpenFile(options);
      works = replay.Pass(capture, pass * shift);
    } catch (const StartFailure& failure) {
      spdlog::error("{}", failure.what());
      works = false;
    }
  }
  pipeline.periods().Close();
  return works;
}

}  // namespace tarq::meter
