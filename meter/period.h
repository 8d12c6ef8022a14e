// Periods: each packet is counted in the period of its time stamp, and each period ends with its flows reported.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "meter/flow_table.h"

namespace tarq::meter {

inline constexpr uint32_t kMinPeriodSeconds = 1;
inline constexpr uint32_t kMaxPeriodSeconds = 3600;

/// Counts packets into the one period that is open and hands its flows on when it closes. A packet of any other period,
/// later or earlier, closes the open one first, so that a flow's period number is that of all its packets; packets that
/// come late give their flows a second record in the earlier period. Used by one thread.
class PeriodMeter {
 public:
  /// Takes the flows of a closed period, never none; called within the calls below.
  using Closed = std::function<void(uint64_t periodId, const FlowTable& flows)>;

  PeriodMeter(uint32_t periodSeconds, size_t maxFlows, Closed onClosed);

  /// Counts one packet. False when its flow is one too many for the period.
  bool Count(const PacketFacts& facts, Timestamp time);

  /// Closes the open period when it is over at `second`.
  void CloseIfOver(uint64_t second);

  /// Closes the open period, if any.
  void Close();

  /// First second after the open period; nothing when none is open.
  std::optional<uint64_t> EndSecond() const;

 private:
  uint32_t periodSeconds_;
  std::optional<uint64_t> openPeriod_;
  FlowTable flows_;
  Closed onClosed_;
};

}  // namespace tarq::meter
