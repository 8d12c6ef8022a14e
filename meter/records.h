// One flow of a closed period as records of the three kinds.
#pragma once

#include <cstdint>
#include <string>

#include "meter/flow_table.h"
#include "meter/services.h"
#include "platform/message.h"

namespace tarq::meter {

/// One flow and what its records say beside its counts. The references stay valid while records are made.
struct FlowReport {
  const FlowKey& key;
  const FlowCounts& counts;
  uint64_t periodId;
  uint32_t periodSeconds;
  const std::string& ifName;  ///< records carry its first 63 bytes
};

FlowEntry MakeFlowEntry(const FlowReport& report);
FlowHopEntry MakeFlowHopEntry(const FlowReport& report);

/// `report` must be of an IPv4 flow. The record points at the report's interface name and MAC and at the service's
/// name: all must outlive it.
NativeIpEntry MakeNativeIpEntry(const FlowReport& report, const Services& services);

}  // namespace tarq::meter
