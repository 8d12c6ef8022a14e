// What a record reads as: its JSON members in their order. GPB says the same, but for the SD-WAN group.
#pragma once

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "encode/native_ip_direction.h"
#include "support/texts.h"

namespace tarq::test {

using Members = nlohmann::ordered_json;

/// Whether GPB carries the SD-WAN group.
inline bool HasSdwan(const FlowHopEntry& e) {
  return e.sdwanFlag == 1 && e.sdwanPeerSiteId && e.sdwanSrcTnpId && e.sdwanDstTnpId;
}

// clang-format off
inline Members Expected(const FlowEntry& e) {
  return {
      {"flow-id", e.flowId}, {"direction", e.direction}, {"address-family", e.addressFamily},
      {"source-ip", Ip(e, e.source)}, {"source-mask", e.sourceMask}, {"destination-ip", Ip(e, e.destination)},
      {"destination-mask", e.destinationMask}, {"source-port", e.sourcePort},
      {"destination-port", e.destinationPort}, {"protocol", e.protocol}, {"vpn-name", TextOf(e.vpnName)},
      {"if-index", e.ifIndex}, {"if-name", TextOf(e.ifName)}, {"error-info", e.errorInfo},
      {"error-info-ext", e.errorInfoExt}, {"interval", e.interval}, {"period-id", e.periodId},
      {"packet-count", e.packetCount}, {"byte-count", e.byteCount}, {"timestamp-second", e.timestampSecond},
      {"timestamp-nanosecond", e.timestampNanosecond}, {"dscp", e.dscp}, {"measure-mode", e.measureMode}};
}

inline Members Expected(const FlowHopEntry& e) {
  return {
      {"flow-id", e.flowId}, {"direction", e.direction}, {"if-index", e.ifIndex}, {"if-name", TextOf(e.ifName)},
      {"error-info", e.errorInfo}, {"error-info-ext", e.errorInfoExt}, {"period-id", e.periodId},
      {"packet-count", e.packetCount}, {"byte-count", e.byteCount}, {"timestamp-second", e.timestampSecond},
      {"timestamp-nanosecond", e.timestampNanosecond}, {"measure-mode", e.measureMode},
      {"sdwan-peer-site-id", e.sdwanPeerSiteId}, {"sdwan-src-tnp-id", e.sdwanSrcTnpId},
      {"sdwan-dst-tnp-id", e.sdwanDstTnpId}};
}

inline Members Expected(const NativeIpEntry& e) {
  Members m = {
      {"source-ip", Ipv4(e.sourceIp)}, {"destination-ip", Ipv4(e.destinationIp)}, {"source-port", e.sourcePort},
      {"destination-port", e.destinationPort}, {"protocol", e.protocol}, {"if-name", e.ifName},
      {"direction", SAVRO_NTVTARQ_ENCODE_GetDirection(e.rawDirection, e.directionKind)},
      {"interval", e.interval}, {"period-id", e.periodId}, {"packet-count", e.packetCount},
      {"byte-count", e.byteCount}, {"timestamp-second", e.timestampSecond},
      {"timestamp-nanosecond", e.timestampNanosecond}, {"discarded-packet-count", e.discardedPacketCount},
      {"discarded-byte-count", e.discardedByteCount}, {"discard-reason", e.discardReason},
      {"start-time", e.startTime}, {"error-info", e.errorInfo}, {"error-info-ext", e.errorInfoExt},
      {"encap-type", e.encapType}};
  if (e.clientMac) m["client-mac"] = Mac(e.clientMac);
  if (e.appName) m["app-id"] = e.appId, m["app-name"] = e.appName;
  return m;
}
// clang-format on

}  // namespace tarq::test
