// Periods: each packet is counted in the period of its time stamp, and each period ends with its flows reported.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <optional>

#include "meter/flow_table.h"

namespace tarq::meter {

inline constexpr uint32_t kMinPeriodSeconds = 1;
inline constexpr uint32_t kMaxPeriodSeconds = 3600;
/// Periods that are open at a time, so that packets out of order around a period's edge do not split its flows.
inline constexpr size_t kMaxOpenPeriods = 4;

/// Counts packets into the periods of their time stamps and hands a period's flows on when it closes. A packet of one
/// period more than may be open closes the one that was used least recently; packets that come later than that give
/// their flows a second record in the period. Used by one thread.
class PeriodMeter {
 public:
  /// Takes the flows of a closed period, never none; called within the calls below.
  using Closed = std::function<void(uint64_t periodId, const FlowTable& flows)>;

  /// `maxFlows` bounds the flows of all open periods together.
  PeriodMeter(uint32_t periodSeconds, size_t maxFlows, Closed onClosed);

  /// Counts one packet. Without room for its flow, the other open periods close first, as many as it takes. False when
  /// its flow is one too many even for its period alone.
  bool Count(const PacketFacts& facts, Timestamp time);

  /// Closes every period that is over at `second`, the oldest first.
  void CloseOver(uint64_t second);

  /// Closes every period, the oldest first.
  void CloseAll();

  /// First second after the oldest open period; nothing when none is open.
  std::optional<uint64_t> FirstEnd() const;

 private:
  struct Period {
    uint64_t id;
    FlowTable flows;
  };
  using Periods = std::list<Period>;

  FlowTable& Use(uint64_t periodId);
  void Open(uint64_t periodId);
  void Close(Periods::iterator period);

  uint32_t periodSeconds_;
  size_t maxFlows_;
  Closed onClosed_;
  Periods open_;   // the one used last first
  Periods spare_;  // closed ones, empty, whose tables serve again
  size_t openFlows_ = 0;
};

}  // namespace tarq::meter
