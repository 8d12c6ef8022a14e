// What a record reads as: its JSON members in their order. GPB says the same, but for the SD-WAN group.
#pragma once

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "encode/native_ip_direction.h"
#include "platform/message.h"

namespace tarq::test {

using Members = nlohmann::ordered_json;

/// A text field's value, with or without a terminator.
template <size_t N>
std::string TextOf(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

inline std::string Ipv4(uint32_t a) {
  return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." + std::to_string(a >> 8 & 255) + "." +
         std::to_string(a & 255);
}
inline std::string Ip(const FlowEntry& e, const IpAddress& address) {
  if (e.addressFamily == 0) return Ipv4(address.words[0]);
  char text[40];
  const uint32_t* w = address.words;
  snprintf(text, sizeof(text), "%x:%x:%x:%x:%x:%x:%x:%x", w[0] >> 16, w[0] & 0xFFFF, w[1] >> 16, w[1] & 0xFFFF,
           w[2] >> 16, w[2] & 0xFFFF, w[3] >> 16, w[3] & 0xFFFF);
  return text;
}

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
  char text[15];
  const uint8_t* mac = e.clientMac;
  if (mac) {
    snprintf(text, sizeof(text), "%02X%02X-%02X%02X-%02X%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    m["client-mac"] = text;
  }
  if (e.appName) m["app-id"] = e.appId, m["app-name"] = e.appName;
  return m;
}
// clang-format on

}  // namespace tarq::test
