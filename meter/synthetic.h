// Made-up flows, for machines where capturing is not allowed.
#pragma once

#include <cstdint>
#include <functional>

#include "meter/mix.h"
#include "meter/packet.h"

namespace tarq::meter {

/// Packets of each made-up flow per round, from 1 to this.
inline constexpr uint32_t kMaxPacketsPerFlow = 16;

/// Makes up packets of the same flows round after round: IPv4 and IPv6, TCP, UDP and ICMP, to common services. The same
/// seed makes up the same packets. Used by one thread.
class SyntheticTraffic {
 public:
  /// At most 2^24 flows.
  SyntheticTraffic(uint32_t flows, uint64_t seed) : flows_(flows), seed_(seed), counts_{Mix(seed)} {}

  /// Makes up one round: 1 to `kMaxPacketsPerFlow` packets of every flow, each passed to `take`.
  void Round(const std::function<void(const PacketFacts&)>& take);

  /// Records that one round adds up to.
  uint64_t RecordsPerRound() const;

  /// What all packets of a flow have in common; `index` is below the number of flows.
  PacketFacts Flow(uint32_t index) const;

 private:
  const uint32_t flows_;
  const uint64_t seed_;
  RandomSequence counts_;
};

}  // namespace tarq::meter
