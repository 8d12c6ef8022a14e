#include "bench/peers.h"

#include <fmt/compile.h>

#include <cstdio>
#include <cstring>
#include <protozero/buffer_fixed.hpp>
#include <protozero/pbf_writer.hpp>

#include "encode/address_text.h"
#include "encode/encoders.h"
#include "encode/native_ip_direction.h"
#include "tarq.pb.h"

namespace tarq::bench {
namespace {

constexpr size_t kRoom = 2048;

struct AddressText {
  char text[kIpv6TextRoom];

  explicit AddressText(uint32_t address) { SAVRO_TARQ_ConvertIpv4AddrToStr(address, text, sizeof text); }
  AddressText(uint8_t family, const IpAddress& address) {
    if (family == 0) SAVRO_TARQ_ConvertIpv4AddrToStr(address.words[0], text, sizeof text);
    if (family == 1) SAVRO_TARQ_ConvertIpv6AddrToStr(address.words, text, sizeof text);
  }
};

struct MacText {
  char text[kMacTextRoom];

  explicit MacText(const uint8_t* address) { SAVRO_TARQ_ConvertMacAddrToStr(address, text, sizeof text); }
};

bool HasSdwan(const FlowHopEntry& e) {
  return e.sdwanFlag == 1 && e.sdwanPeerSiteId != 0 && e.sdwanSrcTnpId != 0 && e.sdwanDstTnpId != 0;
}

uint32_t Direction(const NativeIpEntry& e) {
  return SAVRO_NTVTARQ_ENCODE_GetDirection(e.rawDirection, e.directionKind);
}

// ---- protozero ----

using Buffer = protozero::fixed_size_buffer_adaptor;
using Writer = protozero::basic_pbf_writer<Buffer>;

/// The two wrappings, with what `fields` writes into the entry.
template <class Fields>
size_t WriteFragment(uint32_t container, char* out, Fields fields) {
  Buffer buffer(out, kRoom);
  {
    Writer sample(buffer);
    Writer list(sample, container);
    Writer entry(list, 1);
    fields(entry);
  }
  return buffer.size();
}

// ---- protobuf ----

void Set(const FlowEntry& e, FlowStatistic& m) {
  const AddressText source(e.addressFamily, e.source), destination(e.addressFamily, e.destination);
  m.set_flow_id(e.flowId);
  m.set_direction(e.direction);
  m.set_if_index(e.ifIndex);
  m.set_if_name(e.ifName);
  m.set_interval(e.interval);
  m.set_measure_mode(e.measureMode);
  m.set_address_family(e.addressFamily);
  m.set_source_ip(source.text);
  m.set_destination_ip(destination.text);
  m.set_source_mask(e.sourceMask);
  m.set_destination_mask(e.destinationMask);
  m.set_protocol(e.protocol);
  m.set_source_port(e.sourcePort);
  m.set_destination_port(e.destinationPort);
  m.set_dscp(e.dscp);
  m.set_vpn_name(e.vpnName);
  m.set_error_info(e.errorInfo);
  m.set_error_info_ext(e.errorInfoExt);
  m.set_period_id(e.periodId);
  m.set_packet_count(e.packetCount);
  m.set_byte_count(e.byteCount);
  m.set_timestamp_second(e.timestampSecond);
  m.set_timestamp_nanosecond(e.timestampNanosecond);
}

void Set(const FlowHopEntry& e, FlowHopStatistic& m) {
  m.set_flow_id(e.flowId);
  m.set_direction(e.direction);
  m.set_if_index(e.ifIndex);
  m.set_if_name(e.ifName);
  m.set_measure_mode(e.measureMode);
  m.set_error_info(e.errorInfo);
  m.set_error_info_ext(e.errorInfoExt);
  m.set_period_id(e.periodId);
  m.set_packet_count(e.packetCount);
  m.set_byte_count(e.byteCount);
  m.set_timestamp_second(e.timestampSecond);
  m.set_timestamp_nanosecond(e.timestampNanosecond);
  if (!HasSdwan(e)) return m.clear_sdwan_peer_site_id(), m.clear_sdwan_src_tnp_id(), m.clear_sdwan_dst_tnp_id();
  m.set_sdwan_peer_site_id(e.sdwanPeerSiteId);
  m.set_sdwan_src_tnp_id(e.sdwanSrcTnpId);
  m.set_sdwan_dst_tnp_id(e.sdwanDstTnpId);
}

void Set(const NativeIpEntry& e, FlowNativeIpStatistic& m) {
  m.set_source_ip(AddressText(e.sourceIp).text);
  m.set_destination_ip(AddressText(e.destinationIp).text);
  m.set_source_port(e.sourcePort);
  m.set_destination_port(e.destinationPort);
  m.set_protocol(e.protocol);
  e.clientMac != nullptr ? m.set_client_mac(MacText(e.clientMac).text) : m.clear_client_mac();
  m.set_interval(e.interval);
  m.set_period_id(e.periodId);
  m.set_if_name(e.ifName);
  m.set_direction(Direction(e));
  if (e.appName != nullptr) {
    m.set_app_id(e.appId);
    m.set_app_name(e.appName);
  } else {
    m.clear_app_id();
    m.clear_app_name();
  }
  m.set_start_time(e.startTime);
  m.set_packet_count(e.packetCount);
  m.set_byte_count(e.byteCount);
  m.set_timestamp_second(e.timestampSecond);
  m.set_timestamp_nanosecond(e.timestampNanosecond);
  m.set_discarded_packet_count(e.discardedPacketCount);
  m.set_discarded_byte_count(e.discardedByteCount);
  m.set_discard_reason(e.discardReason);
  m.set_error_info(e.errorInfo);
  m.set_error_info_ext(e.errorInfoExt);
  m.set_encap_type(e.encapType);
}

/// `add` adds an entry to the kind's list, once: every field is set anew.
template <class Entry, class Add>
size_t Serialize(const Entry& entry, Add add, char* out) {
  static Tarq sample;
  static auto& message = *add(sample);
  Set(entry, message);
  const size_t size = sample.ByteSizeLong();
  sample.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(out));
  return size;
}

}  // namespace

size_t Protozero(const FlowEntry& e, char* out) {
  const AddressText source(e.addressFamily, e.source), destination(e.addressFamily, e.destination);
  return WriteFragment(2, out, [&](Writer& m) {
    m.add_uint64(1, e.flowId);
    m.add_uint32(2, e.direction);
    m.add_uint32(12, e.ifIndex);
    m.add_string(32, e.ifName);
    m.add_uint32(14, e.interval);
    m.add_uint32(25, e.measureMode);
    m.add_uint32(3, e.addressFamily);
    m.add_string(4, source.text);
    m.add_string(5, destination.text);
    m.add_uint32(6, e.sourceMask);
    m.add_uint32(7, e.destinationMask);
    m.add_uint32(10, e.protocol);
    m.add_uint32(8, e.sourcePort);
    m.add_uint32(9, e.destinationPort);
    m.add_uint32(22, e.dscp);
    m.add_string(11, e.vpnName);
    m.add_uint32(13, e.errorInfo);
    m.add_uint32(33, e.errorInfoExt);
    m.add_uint64(15, e.periodId);
    m.add_uint64(16, e.packetCount);
    m.add_uint64(17, e.byteCount);
    m.add_uint32(18, e.timestampSecond);
    m.add_uint32(19, e.timestampNanosecond);
  });
}

size_t Protozero(const FlowHopEntry& e, char* out) {
  return WriteFragment(3, out, [&](Writer& m) {
    m.add_uint64(1, e.flowId);
    m.add_uint32(2, e.direction);
    m.add_uint32(3, e.ifIndex);
    m.add_string(22, e.ifName);
    m.add_uint32(13, e.measureMode);
    m.add_uint32(4, e.errorInfo);
    m.add_uint32(23, e.errorInfoExt);
    m.add_uint64(5, e.periodId);
    m.add_uint64(6, e.packetCount);
    m.add_uint64(7, e.byteCount);
    m.add_uint32(8, e.timestampSecond);
    m.add_uint32(9, e.timestampNanosecond);
    if (!HasSdwan(e)) return;
    m.add_uint32(24, e.sdwanPeerSiteId);
    m.add_uint32(25, e.sdwanSrcTnpId);
    m.add_uint32(26, e.sdwanDstTnpId);
  });
}

size_t Protozero(const NativeIpEntry& e, char* out) {
  return WriteFragment(8, out, [&](Writer& m) {
    m.add_string(1, AddressText(e.sourceIp).text);
    m.add_string(3, AddressText(e.destinationIp).text);
    m.add_uint32(5, e.sourcePort);
    m.add_uint32(6, e.destinationPort);
    m.add_uint32(7, e.protocol);
    if (e.clientMac != nullptr) m.add_string(23, MacText(e.clientMac).text);
    m.add_uint32(10, 0);
    m.add_uint32(11, e.interval);
    m.add_uint32(12, e.periodId);
    m.add_string(8, e.ifName);
    m.add_uint32(9, Direction(e));
    if (e.appName != nullptr) m.add_uint32(16, e.appId), m.add_string(17, e.appName);
    m.add_uint32(21, e.startTime);
    m.add_uint64(13, e.packetCount);
    m.add_uint64(14, e.byteCount);
    m.add_uint32(25, e.timestampSecond);
    m.add_uint32(26, e.timestampNanosecond);
    m.add_uint64(18, e.discardedPacketCount);
    m.add_uint64(19, e.discardedByteCount);
    m.add_uint32(20, e.discardReason);
    m.add_uint32(27, e.errorInfo);
    m.add_uint32(28, e.errorInfoExt);
    m.add_uint32(29, e.encapType);
  });
}

// clang-format off
size_t Protobuf(const FlowEntry&     e, char* out) { return Serialize(e, [](Tarq& t) { return t.mutable_flow_statistics()->add_flow_statistic(); }, out); }
size_t Protobuf(const FlowHopEntry&  e, char* out) { return Serialize(e, [](Tarq& t) { return t.mutable_flow_hop_statistics()->add_flow_hop_statistic(); }, out); }
size_t Protobuf(const NativeIpEntry& e, char* out) { return Serialize(e, [](Tarq& t) { return t.mutable_flow_native_ip_statistics()->add_flow_native_ip_statistic(); }, out); }
// clang-format on

size_t Fmt(const FlowEntry& e, char* out) {
  const AddressText source(e.addressFamily, e.source), destination(e.addressFamily, e.destination);
  const char* const end = fmt::format_to(
      out,
      FMT_COMPILE(
          R"({{"flow-id":{},"direction":{},"address-family":{},"source-ip":"{}","source-mask":{},"destination-ip":"{}",)"
          R"("destination-mask":{},"source-port":{},"destination-port":{},"protocol":{},"vpn-name":"{}","if-index":{},)"
          R"("if-name":"{}","error-info":{},"error-info-ext":{},"interval":{},"period-id":{},"packet-count":{},)"
          R"("byte-count":{},"timestamp-second":{},"timestamp-nanosecond":{},"dscp":{},"measure-mode":{}}},)"),
      e.flowId, e.direction, e.addressFamily, std::string_view(source.text), e.sourceMask,
      std::string_view(destination.text), e.destinationMask, e.sourcePort, e.destinationPort, e.protocol,
      std::string_view(e.vpnName), e.ifIndex, std::string_view(e.ifName), e.errorInfo, e.errorInfoExt, e.interval,
      e.periodId, e.packetCount, e.byteCount, e.timestampSecond, e.timestampNanosecond, e.dscp, e.measureMode);
  return static_cast<size_t>(end - out);
}

size_t Fmt(const FlowHopEntry& e, char* out) {
  const char* const end = fmt::format_to(
      out,
      FMT_COMPILE(R"({{"flow-id":{},"direction":{},"if-index":{},"if-name":"{}","error-info":{},"error-info-ext":{},)"
                  R"("period-id":{},"packet-count":{},"byte-count":{},"timestamp-second":{},"timestamp-nanosecond":{},)"
                  R"("measure-mode":{},"sdwan-peer-site-id":{},"sdwan-src-tnp-id":{},"sdwan-dst-tnp-id":{}}},)"),
      e.flowId, e.direction, e.ifIndex, std::string_view(e.ifName), e.errorInfo, e.errorInfoExt, e.periodId,
      e.packetCount, e.byteCount, e.timestampSecond, e.timestampNanosecond, e.measureMode, e.sdwanPeerSiteId,
      e.sdwanSrcTnpId, e.sdwanDstTnpId);
  return static_cast<size_t>(end - out);
}

size_t Fmt(const NativeIpEntry& e, char* out) {
  const AddressText source(e.sourceIp), destination(e.destinationIp);
  char* at = fmt::format_to(
      out,
      FMT_COMPILE(
          R"({{"source-ip":"{}","destination-ip":"{}","source-port":{},"destination-port":{},"protocol":{},)"
          R"("if-name":"{}","direction":{},"interval":{},"period-id":{},"packet-count":{},"byte-count":{},)"
          R"("timestamp-second":{},"timestamp-nanosecond":{},"discarded-packet-count":{},"discarded-byte-count":{},)"
          R"("discard-reason":{},"start-time":{},"error-info":{},"error-info-ext":{},"encap-type":{},)"),
      std::string_view(source.text), std::string_view(destination.text), e.sourcePort, e.destinationPort, e.protocol,
      std::string_view(e.ifName), Direction(e), e.interval, e.periodId, e.packetCount, e.byteCount, e.timestampSecond,
      e.timestampNanosecond, e.discardedPacketCount, e.discardedByteCount, e.discardReason, e.startTime, e.errorInfo,
      e.errorInfoExt, e.encapType);
  if (e.clientMac != nullptr) {
    at = fmt::format_to(at, FMT_COMPILE(R"("client-mac":"{}",)"), std::string_view(MacText(e.clientMac).text));
  }
  if (e.appName != nullptr) {
    at = fmt::format_to(at, FMT_COMPILE(R"("app-id":{},"app-name":"{}",)"), e.appId, std::string_view(e.appName));
  }
  std::memcpy(at - 1, "},", 2);
  return static_cast<size_t>(at + 1 - out);
}

// The templates are the module's; what they take is checked by comparing the texts.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

template <class... Values>
char* Print(char* out, const char* format, Values... values) {
  return out + std::snprintf(out, kRoom, format, values...);
}

}  // namespace

size_t Snprintf(const FlowEntry& e, char* out) {
  const AddressText source(e.addressFamily, e.source), destination(e.addressFamily, e.destination);
  *out = '{';
  char* const end =
      Print(out + 1, SAVRO_TARQ_FLOW_STATS_JSON_TEMPLATE, e.flowId, e.direction, e.addressFamily, source.text,
            e.sourceMask, destination.text, e.destinationMask, e.sourcePort, e.destinationPort, e.protocol, e.vpnName,
            e.ifIndex, e.ifName, e.errorInfo, e.errorInfoExt, e.interval, e.periodId, e.packetCount, e.byteCount,
            e.timestampSecond, e.timestampNanosecond, e.dscp, e.measureMode);
  return static_cast<size_t>(Print(end, "},") - out);
}

size_t Snprintf(const FlowHopEntry& e, char* out) {
  *out = '{';
  char* const end = Print(out + 1, SAVRO_TARQ_FLOWHOP_STATS_JSON_TEMPLATE, e.flowId, e.direction, e.ifIndex, e.ifName,
                          e.errorInfo, e.errorInfoExt, e.periodId, e.packetCount, e.byteCount, e.timestampSecond,
                          e.timestampNanosecond, e.measureMode, e.sdwanPeerSiteId, e.sdwanSrcTnpId, e.sdwanDstTnpId);
  return static_cast<size_t>(Print(end, "},") - out);
}

size_t Snprintf(const NativeIpEntry& e, char* out) {
  char* at = Print(out, R"({"source-ip":"%s","destination-ip":"%s",)", AddressText(e.sourceIp).text,
                   AddressText(e.destinationIp).text);
  at = Print(at, SAVRO_NTVTARQ_STATS_JSON_TEMPLATE, e.sourcePort, e.destinationPort, e.protocol, e.ifName, Direction(e),
             e.interval, e.periodId, e.packetCount, e.byteCount, e.timestampSecond, e.timestampNanosecond,
             e.discardedPacketCount, e.discardedByteCount, e.discardReason, e.startTime, e.errorInfo, e.errorInfoExt,
             e.encapType);
  if (e.clientMac != nullptr) at = Print(at, R"("client-mac":"%s",)", MacText(e.clientMac).text);
  if (e.appName != nullptr) at = Print(at, R"("app-id":%u,"app-name":"%s",)", e.appId, e.appName);
  return static_cast<size_t>(Print(at - 1, "},") - out);
}

}  // namespace tarq::bench
