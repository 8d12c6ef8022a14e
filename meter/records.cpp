#include "meter/records.h"

#include <algorithm>

namespace tarq::meter {
namespace {

constexpr uint8_t kIpv4Mask = 32;
constexpr uint8_t kIpv6Mask = 128;
constexpr uint8_t kMeteredDirectionKind = 1;

template <size_t kSize>
void CopyText(const std::string& text, char (&field)[kSize]) {
  text.copy(field, kSize - 1);
}

uint32_t Word(uint64_t value) { return static_cast<uint32_t>(value); }

/// What all three kinds tell of a flow's packets.
template <class Counts, class Entry>
void SetMeasured(const Counts& counts, Entry& entry) {
  entry.packetCount = counts.packets;
  entry.byteCount = counts.bytes;
  entry.timestampSecond = Word(counts.last.second);
  entry.timestampNanosecond = counts.last.nanosecond;
}

}  // namespace

FlowEntry MakeFlowEntry(const FlowReport& report) {
  const auto& [key, counts, periodId, periodSeconds, ifName] = report;
  FlowEntry entry{};
  entry.flowId = FlowId(key);
  entry.direction = counts.direction;
  entry.addressFamily = key.addressFamily;
  entry.sourceMask = entry.destinationMask = key.addressFamily == 0 ? kIpv4Mask : kIpv6Mask;
  entry.source = key.source;
  entry.destination = key.destination;
  entry.sourcePort = key.sourcePort;
  entry.destinationPort = key.destinationPort;
  entry.ifIndex = key.ifIndex;
  CopyText(ifName, entry.ifName);
  entry.protocol = key.protocol;
  entry.dscp = counts.dscp;
  entry.interval = static_cast<uint16_t>(periodSeconds);
  entry.periodId = periodId;
  SetMeasured(counts, entry);
  return entry;
}

FlowHopEntry MakeFlowHopEntry(const FlowReport& report) {
  const auto& [key, counts, periodId, periodSeconds, ifName] = report;
  FlowHopEntry entry{};
  entry.flowId = FlowId(key);
  entry.ifIndex = key.ifIndex;
  CopyText(ifName, entry.ifName);
  entry.direction = counts.direction;
  entry.periodId = periodId;
  SetMeasured(counts, entry);
  return entry;
}

NativeIpEntry MakeNativeIpEntry(const FlowReport& report, const Services& services) {
  const auto& [key, counts, periodId, periodSeconds, ifName] = report;
  NativeIpEntry entry{};
  entry.periodId = Word(periodId);
  entry.sourceIp = key.source.words[0];
  entry.destinationIp = key.destination.words[0];
  entry.sourcePort = key.sourcePort;
  entry.destinationPort = key.destinationPort;
  entry.protocol = key.protocol;
  entry.directionKind = kMeteredDirectionKind;
  SetMeasured(counts, entry);
  entry.startTime = Word(counts.first.second);
  entry.interval = periodSeconds;
  entry.clientMac = counts.sourceMac == MacAddress{} ? nullptr : counts.sourceMac.data();
  entry.rawDirection = counts.direction;
  entry.ifName = ifName.c_str();
  if (const Service* service = services.Find(key)) {
    entry.appId = service->port;
    entry.appName = service->name.c_str();
  }
  return entry;
}

}  // namespace tarq::meter
