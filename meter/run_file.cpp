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

/// With `--pace real` a period is closed this long after its end, in the capture's time, so that packets out of order
/// around it still count in it.
constexpr uint64_t kPeriodGraceSeconds = 1;
/// Times between packets beyond this, 136 years, are taken for this: more could overflow the clock.
constexpr int64_t kLongestGapSeconds = int64_t{1} << 32;

std::chrono::nanoseconds Between(Timestamp from, Timestamp to) {
  const auto seconds = static_cast<int64_t>(to.second - from.second);  // Negative when `to` is earlier.
  return std::chrono::seconds(std::clamp(seconds, -kLongestGapSeconds, kLongestGapSeconds)) +
         std::chrono::nanoseconds(int64_t{to.nanosecond} - from.nanosecond);
}

/// Keeps the capture's own timing: the first packet comes at once, every other as long after it as its time stamp says.
class Pace {
 public:
  explicit Pace(Pipeline& pipeline) : pipeline_(pipeline) {}

  /// Waits until `time` has come, closing periods that are over before. False when stopped.
  bool WaitFor(Timestamp time) {
    if (!first_) first_ = time;
    for (auto end = FirstEnd(); end && *end + kPeriodGraceSeconds <= time.second; end = FirstEnd()) {
      if (!WaitUntil({*end + kPeriodGraceSeconds, 0})) return false;
      pipeline_.periods().CloseOver(*end);
    }
    return WaitUntil(time);
  }

 private:
  std::optional<uint64_t> FirstEnd() const { return pipeline_.periods().FirstEnd(); }

  bool WaitUntil(Timestamp time) {
    const auto due = start_ + Between(*first_, time);
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
      if (packet.time) {
        span_.Include(*packet.time);
        packet.time->second += shiftSeconds;
        if (!Paced(*packet.time)) break;
      }
      pipeline_.Count(capture.linkType(), packet);
    }
    return true;
  }

  const Span& span() const { return span_; }

 private:
  bool Paced(Timestamp time) {
    if (isPaced_) return pace_.WaitFor(time);
    if (pipeline_.packets().seen % kPacketsPerTurn == 0) pipeline_.ServeHost();
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
  pipeline.End();
  return works;
}

}  // namespace tarq::meter
