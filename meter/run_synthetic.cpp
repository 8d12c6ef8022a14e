// Packets of made-up flows, in the wall clock's periods.
#include <spdlog/spdlog.h>

#include <algorithm>

#include "meter/pipeline.h"
#include "meter/synthetic.h"

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

/// How far the rounds may fall behind their rate and still make up for it.
constexpr std::chrono::seconds kLongestCatchUp{1};

Timestamp Now() {
  const auto time = system_clock::now().time_since_epoch();
  const auto second = std::chrono::floor<std::chrono::seconds>(time);
  return {static_cast<uint64_t>(second.count()),
          static_cast<uint32_t>(std::chrono::nanoseconds(time - second).count())};
}

/// Waits for the open period's end, but for one period at most, should the wall clock be set back meanwhile.
bool WaitForPeriodEnd(Pipeline& pipeline, std::chrono::seconds period) {
  const auto end = pipeline.periods().FirstEnd();
  if (!end) return true;
  const system_clock::time_point time{std::chrono::seconds(*end)};
  const auto latest = Clock::now() + period;
  return pipeline.WaitUntilOver([time, latest] {
    return std::min(std::chrono::ceil<milliseconds>(time - system_clock::now()),
                    std::chrono::ceil<milliseconds>(latest - Clock::now()));
  });
}

bool WaitUntil(Pipeline& pipeline, Clock::time_point due) {
  return pipeline.WaitUntilOver([due] { return std::chrono::ceil<milliseconds>(due - Clock::now()); });
}

}  // namespace

bool MeterSynthetic(const Options& options, Pipeline& pipeline) {
  spdlog::info("making up {} flows, seed {}, period {} s", options.syntheticFlows, options.seed, options.periodSeconds);
  SyntheticTraffic traffic(options.syntheticFlows, options.seed);
  const std::chrono::seconds period{options.periodSeconds};
  const bool isRated = options.recordsPerSecond != 0;
  const double roundSeconds = isRated ? static_cast<double>(traffic.RecordsPerRound()) / options.recordsPerSecond : 0;
  const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(roundSeconds));
  auto due = Clock::now();
  for (uint64_t round = 0; (options.rounds == 0 || round < options.rounds) && !pipeline.stop().requested(); ++round) {
    const Timestamp now = Now();
    traffic.Round([&](const PacketFacts& facts) { pipeline.Count(facts, now); });
    due = std::max(due + interval, Clock::now() - kLongestCatchUp);
    const bool goesOn = isRated ? WaitUntil(pipeline, due) : WaitForPeriodEnd(pipeline, period);
    pipeline.periods().CloseAll();
    if (!goesOn) break;
  }
  pipeline.End();
  return true;
}

}  // namespace tarq::meter
