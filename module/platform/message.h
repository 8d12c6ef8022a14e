// The message library: unpacks a statistics message into an array of fixed-size entry records.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarq {

/// Message identifiers of the three statistics kinds.
inline constexpr uint32_t kNativeIpMsgId = 0x86BEE653;
inline constexpr uint32_t kFlowMsgId = 0xED1CA3D7;
inline constexpr uint32_t kFlowHopMsgId = 0x515D9FC7;

/// An address as records carry it, integers in host byte order. IPv4: word 0, first octet in its most significant byte,
/// the other words unused. IPv6: four words, the most significant first.
struct IpAddress {
  uint32_t words[4];
};

/// One flow in one period. Integers in host byte order; texts are terminated within their fields.
struct FlowEntry {
  uint64_t flowId;
  uint8_t direction;
  uint8_t addressFamily;  ///< 0 IPv4, 1 IPv6; any other value is refused by the encoders
  uint8_t sourceMask;
  uint8_t destinationMask;
  IpAddress source;
  IpAddress destination;
  uint16_t sourcePort;
  uint16_t destinationPort;
  char vpnName[32];
  uint32_t ifIndex;
  char ifName[64];
  uint32_t errorInfoExt;
  uint8_t errorInfo;
  uint8_t protocol;
  uint8_t dscp;
  uint8_t measureMode;
  uint16_t interval;
  uint8_t unused158[2];
  uint64_t periodId;
  uint64_t packetCount;
  uint64_t byteCount;
  uint32_t timestampSecond;
  uint32_t timestampNanosecond;
};
static_assert(sizeof(FlowEntry) == 192);
static_assert(offsetof(FlowEntry, flowId) == 0);
static_assert(offsetof(FlowEntry, direction) == 8);
static_assert(offsetof(FlowEntry, addressFamily) == 9);
static_assert(offsetof(FlowEntry, sourceMask) == 10);
static_assert(offsetof(FlowEntry, destinationMask) == 11);
static_assert(offsetof(FlowEntry, source) == 12);
static_assert(offsetof(FlowEntry, destination) == 28);
static_assert(offsetof(FlowEntry, sourcePort) == 44);
static_assert(offsetof(FlowEntry, destinationPort) == 46);
static_assert(offsetof(FlowEntry, vpnName) == 48);
static_assert(offsetof(FlowEntry, ifIndex) == 80);
static_assert(offsetof(FlowEntry, ifName) == 84);
static_assert(offsetof(FlowEntry, errorInfoExt) == 148);
static_assert(offsetof(FlowEntry, errorInfo) == 152);
static_assert(offsetof(FlowEntry, protocol) == 153);
static_assert(offsetof(FlowEntry, dscp) == 154);
static_assert(offsetof(FlowEntry, measureMode) == 155);
static_assert(offsetof(FlowEntry, interval) == 156);
static_assert(offsetof(FlowEntry, periodId) == 160);
static_assert(offsetof(FlowEntry, packetCount) == 168);
static_assert(offsetof(FlowEntry, byteCount) == 176);
static_assert(offsetof(FlowEntry, timestampSecond) == 184);
static_assert(offsetof(FlowEntry, timestampNanosecond) == 188);

/// One flow at one interface in one period. Integers in host byte order; the text is terminated within its field.
struct FlowHopEntry {
  uint64_t flowId;
  uint32_t ifIndex;
  char ifName[64];
  uint8_t direction;
  uint8_t measureMode;
  uint8_t unused78;
  uint8_t errorInfo;
  uint32_t errorInfoExt;
  uint8_t unused84[4];
  uint64_t periodId;
  uint64_t packetCount;
  uint64_t byteCount;
  uint32_t timestampSecond;
  uint32_t timestampNanosecond;
  uint8_t sdwanFlag;  ///< the three identifiers below count only when it is 1
  uint8_t unused121;
  uint16_t sdwanPeerSiteId;
  uint32_t sdwanSrcTnpId;
  uint32_t sdwanDstTnpId;
  uint8_t unused132[4];
};
static_assert(sizeof(FlowHopEntry) == 136);
static_assert(offsetof(FlowHopEntry, flowId) == 0);
static_assert(offsetof(FlowHopEntry, ifIndex) == 8);
static_assert(offsetof(FlowHopEntry, ifName) == 12);
static_assert(offsetof(FlowHopEntry, direction) == 76);
static_assert(offsetof(FlowHopEntry, measureMode) == 77);
static_assert(offsetof(FlowHopEntry, errorInfo) == 79);
static_assert(offsetof(FlowHopEntry, errorInfoExt) == 80);
static_assert(offsetof(FlowHopEntry, periodId) == 88);
static_assert(offsetof(FlowHopEntry, packetCount) == 96);
static_assert(offsetof(FlowHopEntry, byteCount) == 104);
static_assert(offsetof(FlowHopEntry, timestampSecond) == 112);
static_assert(offsetof(FlowHopEntry, timestampNanosecond) == 116);
static_assert(offsetof(FlowHopEntry, sdwanFlag) == 120);
static_assert(offsetof(FlowHopEntry, sdwanPeerSiteId) == 122);
static_assert(offsetof(FlowHopEntry, sdwanSrcTnpId) == 124);
static_assert(offsetof(FlowHopEntry, sdwanDstTnpId) == 128);

/// One IPv4 flow with its client and application in one period. Integers in host byte order, pointers 64-bit. What the
/// pointers lead to is the message library's, like the record.
struct NativeIpEntry {
  uint32_t periodId;
  uint32_t sourceIp;       ///< first octet in the most significant byte
  uint32_t destinationIp;  ///< same form
  uint16_t sourcePort;
  uint16_t destinationPort;
  uint8_t protocol;
  uint8_t directionKind;  ///< first input of the direction mapping
  uint8_t unused18[6];
  uint64_t packetCount;
  uint64_t byteCount;
  uint32_t timestampSecond;
  uint32_t timestampNanosecond;
  uint64_t discardedPacketCount;
  uint64_t discardedByteCount;
  uint32_t discardReason;
  uint32_t startTime;
  uint32_t interval;
  uint8_t unused76[4];
  const uint8_t* clientMac;  ///< 6 bytes, or null when the record has none
  uint8_t rawDirection;      ///< second input of the direction mapping
  uint8_t unused89[7];
  const char* ifName;  ///< terminated; must not be null
  uint8_t encapType;
  uint8_t unused105[3];
  uint32_t appId;
  uint8_t unused112[8];
  const char* appName;  ///< terminated, or null when the record has none
  uint8_t errorInfo;
  uint8_t unused129[3];
  uint32_t errorInfoExt;
};
static_assert(sizeof(NativeIpEntry) == 136);
static_assert(offsetof(NativeIpEntry, periodId) == 0);
static_assert(offsetof(NativeIpEntry, sourceIp) == 4);
static_assert(offsetof(NativeIpEntry, destinationIp) == 8);
static_assert(offsetof(NativeIpEntry, sourcePort) == 12);
static_assert(offsetof(NativeIpEntry, destinationPort) == 14);
static_assert(offsetof(NativeIpEntry, protocol) == 16);
static_assert(offsetof(NativeIpEntry, directionKind) == 17);
static_assert(offsetof(NativeIpEntry, packetCount) == 24);
static_assert(offsetof(NativeIpEntry, byteCount) == 32);
static_assert(offsetof(NativeIpEntry, timestampSecond) == 40);
static_assert(offsetof(NativeIpEntry, timestampNanosecond) == 44);
static_assert(offsetof(NativeIpEntry, discardedPacketCount) == 48);
static_assert(offsetof(NativeIpEntry, discardedByteCount) == 56);
static_assert(offsetof(NativeIpEntry, discardReason) == 64);
static_assert(offsetof(NativeIpEntry, startTime) == 68);
static_assert(offsetof(NativeIpEntry, interval) == 72);
static_assert(offsetof(NativeIpEntry, clientMac) == 80);
static_assert(offsetof(NativeIpEntry, rawDirection) == 88);
static_assert(offsetof(NativeIpEntry, ifName) == 96);
static_assert(offsetof(NativeIpEntry, encapType) == 104);
static_assert(offsetof(NativeIpEntry, appId) == 108);
static_assert(offsetof(NativeIpEntry, appName) == 120);
static_assert(offsetof(NativeIpEntry, errorInfo) == 128);
static_assert(offsetof(NativeIpEntry, errorInfoExt) == 132);

/// What a message unpacks to: three words, zeroed by the caller before unpacking, whose use depends on the kind.
/// Flow and flow-hop: `words[0]` entry count (low 32 bits), `words[1]` address of the entry array.
/// Native IP: `words[1]` address of the entry array, `words[2]` entry count (low 32 bits).
/// The entry array is contiguous. It and all that it points to belong to the message library until the list is freed.
struct StatisticsList {
  uint64_t words[3];
};
static_assert(sizeof(StatisticsList) == 24);

extern "C" {

/// Each unpacks one message, `length` bytes at `payload`, into `list`. `list` does not refer to `payload` afterwards.
/// The result is not examined: a message that cannot be unpacked leaves an entry count of 0.
uint32_t tarq_flow_statistics_list_to_savro__unpack(const void* payload, uint32_t length, StatisticsList* list);
uint32_t tarq_flow_hop_statistics_list_to_savro__unpack(const void* payload, uint32_t length, StatisticsList* list);
uint32_t ntvtarq_entry_list_savro__unpack(const void* payload, uint32_t length, StatisticsList* list);

/// Each takes back all that unpacking into `list` produced; called exactly once per unpacking, also for an empty list.
void tarq_flow_statistics_list_to_savro_free__unpacked(StatisticsList* list);
void tarq_flow_hop_statistics_list_to_savro_free__unpacked(StatisticsList* list);
void ntvtarq_entry_list_savro_free__unpacked(StatisticsList* list);

/// Sets up message receiving, once, after the channel server has started. Returns 0 on success.
uint32_t ntvtarq_recv_init(void);

}  // extern "C"
}  // namespace tarq
