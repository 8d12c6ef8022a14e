// From captured bytes to the facts that are counted: looks through the link layer and the IP headers.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <span>

#include "platform/message.h"

namespace tarq::meter {

/// A point in time as captures give it.
struct Timestamp {
  uint64_t second;  ///< since the Unix epoch
  uint32_t nanosecond;

  auto operator<=>(const Timestamp&) const = default;
};

/// What makes packets one flow. Integers in host byte order, addresses in the form of the records.
struct FlowKey {
  IpAddress source;
  IpAddress destination;
  uint32_t ifIndex;
  uint16_t sourcePort;  ///< 0, like the destination's, when the protocol has no ports or this packet does not show them
  uint16_t destinationPort;
  uint8_t addressFamily;  ///< 0 IPv4, 1 IPv6
  uint8_t protocol;
  uint8_t unused[6];  ///< 0: the key is hashed and compared as six words
};
using FlowKeyWords = std::array<uint64_t, 6>;
static_assert(sizeof(FlowKey) == sizeof(FlowKeyWords));

inline FlowKeyWords Words(const FlowKey& key) { return std::bit_cast<FlowKeyWords>(key); }

using MacAddress = std::array<uint8_t, 6>;

enum Direction : uint8_t { kUnknownDirection = 0, kIn = 1, kOut = 2 };

/// What one packet adds to its flow.
struct PacketFacts {
  FlowKey key;
  uint32_t ipBytes;  ///< IPv4 total length, or IPv6 payload length plus 40
  uint8_t dscp;
  Direction direction;   ///< told by Linux cooked captures only
  MacAddress sourceMac;  ///< zero when the link has none
};

enum class Verdict : uint8_t {
  kIp,           ///< the facts are filled in
  kNotIp,        ///< carries another protocol
  kMalformed,    ///< the link or IP header is cut off or contradicts itself
  kUnsupported,  ///< may carry IP, wrapped in what the meter does not look through: PPPoE sessions, MPLS pseudowires
};

/// VLAN tags and MPLS labels looked through at most, in all; beyond it a packet is unsupported.
inline constexpr int kMaxTags = 16;
/// IPv6 extension headers looked through at most; beyond it the next one counts as the packet's protocol.
inline constexpr int kMaxExtensionHeaders = 16;

/// Whether packets of libpcap's link type `dlt` can be read: Ethernet, Linux cooked (both versions), raw IP, BSD
/// loopback.
bool IsSupportedLinkType(int dlt);

/// Reads a packet of link type `dlt`. `captured` may be cut off anywhere and is never read beyond its end;
/// `originalLength` is the frame's length on the wire in bytes. `facts` is complete when the result is `kIp`, with
/// `key.ifIndex` as the link header tells it, else 0. Allocates nothing.
Verdict ReadPacket(int dlt, std::span<const uint8_t> captured, uint32_t originalLength, PacketFacts& facts);

}  // namespace tarq::meter
