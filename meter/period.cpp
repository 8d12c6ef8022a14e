#include "meter/period.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tarq::meter {

PeriodMeter::PeriodMeter(uint32_t periodSeconds, size_t maxFlows, Closed onClosed)
    : periodSeconds_(periodSeconds), maxFlows_(maxFlows), onClosed_(std::move(onClosed)) {}

bool PeriodMeter::Count(const PacketFacts& facts, Timestamp time) {
  FlowTable& flows = Use(time.second / periodSeconds_);
  const size_t flowsBefore = flows.size();
  while (!flows.Count(facts, time, openFlows_ < maxFlows_)) {
    if (open_.size() == 1) return false;
    Close(std::prev(open_.end()));
  }
  openFlows_ += flows.size() - flowsBefore;
  return true;
}

FlowTable& PeriodMeter::Use(uint64_t periodId) {
  const auto found = std::ranges::find(open_, periodId, &Period::id);
  if (found == open_.end()) {
    Open(periodId);
  } else {
    open_.splice(open_.begin(), open_, found);
  }
  return open_.front().flows;
}

void PeriodMeter::Open(uint64_t periodId) {
  if (open_.size() == kMaxOpenPeriods) Close(std::prev(open_.end()));
  if (spare_.empty()) spare_.emplace_back();
  open_.splice(open_.begin(), spare_, spare_.begin());
  open_.front().id = periodId;
}

void PeriodMeter::Close(Periods::iterator period) {
  if (period->flows.size() != 0) onClosed_(period->id, period->flows);
  openFlows_ -= period->flows.size();
  period->flows.Clear();
  spare_.splice(spare_.begin(), open_, period);
}

void PeriodMeter::CloseOver(uint64_t second) {
  while (!open_.empty() && *FirstEnd() <= second) Close(std::ranges::min_element(open_, {}, &Period::id));
}

void PeriodMeter::CloseAll() { CloseOver(UINT64_MAX); }

std::optional<uint64_t> PeriodMeter::FirstEnd() const {
  if (open_.empty()) return std::nullopt;
  return (std::ranges::min_element(open_, {}, &Period::id)->id + 1) * periodSeconds_;
}

}  // namespace tarq::meter
