#include "meter/period.h"

#include <utility>

namespace tarq::meter {

PeriodMeter::PeriodMeter(uint32_t periodSeconds, size_t maxFlows, Closed onClosed)
    : periodSeconds_(periodSeconds), flows_(maxFlows), onClosed_(std::move(onClosed)) {}

bool PeriodMeter::Count(const PacketFacts& facts, Timestamp time) {
  const uint64_t period = time.second / periodSeconds_;
  if (openPeriod_ != period) {
    Close();
    openPeriod_ = period;
  }
  return flows_.Count(facts, time);
}

void PeriodMeter::CloseIfOver(uint64_t second) {
  if (openPeriod_ && second >= *EndSecond()) Close();
}

void PeriodMeter::Close() {
  if (!openPeriod_) return;
  if (flows_.size() != 0) onClosed_(*openPeriod_, flows_);
  flows_.Clear();
  openPeriod_.reset();
}

std::optional<uint64_t> PeriodMeter::EndSecond() const {
  if (!openPeriod_) return std::nullopt;
  return (*openPeriod_ + 1) * periodSeconds_;
}

}  // namespace tarq::meter
