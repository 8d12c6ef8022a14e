// The flows of one period and what was counted of each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "meter/packet.h"

namespace tarq::meter {

/// What was counted of one flow in one period.
struct FlowCounts {
  uint64_t packets;
  uint64_t bytes;  ///< IP bytes
  Timestamp first;
  Timestamp last;  ///< of the flow's last packet in the order of arrival
  uint8_t dscp;    ///< this and the next two: of the flow's first packet
  Direction direction;
  MacAddress sourceMac;  ///< zero when unknown
};

/// Identifier of a flow: a hash of its key, the same in every period, run and machine.
uint64_t FlowId(const FlowKey& key);

/// Counts packets per flow. Used by one thread.
class FlowTable {
 public:
  FlowTable();

  /// Adds one packet. False, with nothing counted, when it would open a flow and `mayOpen` is false.
  bool Count(const PacketFacts& facts, Timestamp time, bool mayOpen);

  void Clear();
  size_t size() const { return flows_.size(); }
  auto begin() const { return flows_.begin(); }  ///< pairs of key and counts, in no order
  auto end() const { return flows_.end(); }

 private:
  /// Seeded, so that nobody can send packets whose flows all share one bucket.
  struct Hash {
    uint64_t seed;
    size_t operator()(const FlowKey& key) const;
  };
  struct Equal {
    bool operator()(const FlowKey& a, const FlowKey& b) const { return Words(a) == Words(b); }
  };

  std::unordered_map<FlowKey, FlowCounts, Hash, Equal> flows_;
};

}  // namespace tarq::meter
