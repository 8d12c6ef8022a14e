#include "meter/packet.h"

#include <net/ethernet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <pcap/dlt.h>
#include <pcap/sll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace tarq::meter {
namespace {

enum class Network : uint8_t { kEtherType, kFamilyWord, kIpVersion };
constexpr int8_t kNone = -1;

/// Where a link header keeps what is needed: offsets in bytes, all within `headerSize`.
struct LinkType {
  int dlt;
  uint8_t headerSize;
  Network network;    // how the header names what follows it
  int8_t etherType;   // offset of the EtherType
  int8_t mac;         // offset of the sender's address
  int8_t macLength;   // offset of the address's length, low byte; none: always 6
  int8_t packetType;  // offset of the cooked packet type, low byte
  int8_t ifIndex;     // offset of the interface index
};
constexpr LinkType kLinkTypes[] = {
    {DLT_EN10MB, sizeof(ether_header), Network::kEtherType, 12, 6, kNone, kNone, kNone},
    {DLT_LINUX_SLL, sizeof(sll_header), Network::kEtherType, 14, 6, 5, 1, kNone},
    {DLT_LINUX_SLL2, sizeof(sll2_header), Network::kEtherType, 0, 12, 11, 10, 4},
    {DLT_RAW, 0, Network::kIpVersion, kNone, kNone, kNone, kNone, kNone},
    {DLT_IPV4, 0, Network::kIpVersion, kNone, kNone, kNone, kNone, kNone},
    {DLT_IPV6, 0, Network::kIpVersion, kNone, kNone, kNone, kNone, kNone},
    {DLT_NULL, 4, Network::kFamilyWord, kNone, kNone, kNone, kNone, kNone},
    {DLT_LOOP, 4, Network::kFamilyWord, kNone, kNone, kNone, kNone, kNone},
};

const LinkType* FindLinkType(int dlt) {
  const auto* found = std::ranges::find(kLinkTypes, dlt, &LinkType::dlt);
  return found == std::end(kLinkTypes) ? nullptr : found;
}

/// The bytes that may be read. Callers ask `Has` before they read.
struct Bytes {
  const uint8_t* data;
  uint32_t size;

  bool Has(uint32_t offset, uint32_t count) const { return offset <= size && count <= size - offset; }
  uint8_t U8(uint32_t offset) const { return data[offset]; }
  uint16_t U16(uint32_t offset) const { return static_cast<uint16_t>(data[offset] << 8 | data[offset + 1]); }
  uint32_t U32(uint32_t offset) const { return static_cast<uint32_t>(U16(offset)) << 16 | U16(offset + 2); }
};

Direction DirectionOf(uint8_t cookedPacketType) {
  if (cookedPacketType == LINUX_SLL_OUTGOING) return kOut;
  return cookedPacketType <= LINUX_SLL_MULTICAST ? kIn : kUnknownDirection;  // To us, to all, or to a group.
}

void ReadLinkFacts(const LinkType& link, const Bytes& bytes, PacketFacts& facts) {
  const bool hasMac = link.mac != kNone && (link.macLength == kNone || bytes.U8(link.macLength) == ETH_ALEN);
  if (hasMac) std::memcpy(facts.sourceMac.data(), bytes.data + link.mac, ETH_ALEN);
  if (link.packetType != kNone) facts.direction = DirectionOf(bytes.U8(link.packetType));
  if (link.ifIndex != kNone) facts.key.ifIndex = bytes.U32(link.ifIndex);
}

/// The EtherType of the IP version in the first half byte at `offset`; 0 for anything else.
uint16_t EtherTypeOfVersion(const Bytes& bytes, uint32_t offset) {
  const int version = bytes.Has(offset, 1) ? bytes.U8(offset) >> 4 : 0;
  return version == 4 ? ETHERTYPE_IP : version == 6 ? ETHERTYPE_IPV6 : 0;
}

/// The EtherType of a BSD loopback header's address family, written in the byte order of the machine that captured.
uint16_t EtherTypeOfFamily(uint32_t family) {
  constexpr uint32_t kIpv6Families[] = {10, 24, 28, 30};  // Linux and each BSD have a number of their own.
  if (family > 0xFFFF) family = __builtin_bswap32(family);
  if (family == AF_INET) return ETHERTYPE_IP;
  return std::ranges::count(kIpv6Families, family) != 0 ? ETHERTYPE_IPV6 : 0;
}

/// Goes through VLAN tags and MPLS labels: moves `offset` to the network header and returns its verdict so far, with
/// `etherType` one of IP's when that is `kIp`.
Verdict SkipTags(const Bytes& bytes, uint16_t& etherType, uint32_t& offset) {
  for (int tags = 0; tags <= kMaxTags; ++tags) {
    switch (etherType) {
      case ETHERTYPE_IP:
      case ETHERTYPE_IPV6:
        return Verdict::kIp;
      case ETH_P_8021Q:
      case ETH_P_8021AD:
      case ETH_P_QINQ1:
        if (!bytes.Has(offset, 4)) return Verdict::kMalformed;
        etherType = bytes.U16(offset + 2);
        offset += 4;
        break;
      case ETH_P_MPLS_UC:
      case ETH_P_MPLS_MC: {
        if (!bytes.Has(offset, 4)) return Verdict::kMalformed;
        const bool bottomOfStack = bytes.U8(offset + 2) & 1;
        offset += 4;
        if (!bottomOfStack) break;
        if (!bytes.Has(offset, 1)) return Verdict::kMalformed;
        etherType = EtherTypeOfVersion(bytes, offset);
        if (etherType == 0) return Verdict::kUnsupported;
        break;
      }
      case ETH_P_PPP_SES:
        return Verdict::kUnsupported;
      default:
        return Verdict::kNotIp;
    }
  }
  return Verdict::kUnsupported;
}

void ReadPorts(const Bytes& bytes, uint32_t offset, FlowKey& key) {
  switch (key.protocol) {
    case IPPROTO_TCP:
    case IPPROTO_UDP:
    case IPPROTO_UDPLITE:
    case IPPROTO_SCTP:
    case IPPROTO_DCCP:
      if (!bytes.Has(offset, 4)) return;
      key.sourcePort = bytes.U16(offset);
      key.destinationPort = bytes.U16(offset + 2);
  }
}

Verdict ReadIpv4(Bytes bytes, uint32_t wireLength, PacketFacts& facts) {
  if (!bytes.Has(0, sizeof(iphdr)) || bytes.U8(0) >> 4 != 4) return Verdict::kMalformed;
  const uint32_t headerLength = (bytes.U8(0) & 0xFu) * 4;
  const uint32_t totalLength = bytes.U16(2);
  // Segments that the network card is still to cut, larger than the field can tell, have a length of 0.
  facts.ipBytes = totalLength != 0 ? totalLength : wireLength;
  if (headerLength < sizeof(iphdr) || facts.ipBytes < headerLength) return Verdict::kMalformed;
  facts.dscp = bytes.U8(1) >> 2;
  facts.key.protocol = bytes.U8(9);
  facts.key.source.words[0] = bytes.U32(12);
  facts.key.destination.words[0] = bytes.U32(16);
  bytes.size = std::min(bytes.size, facts.ipBytes);  // What follows is the link's padding.
  const bool laterFragment = (bytes.U16(6) & IP_OFFMASK) != 0;
  if (!laterFragment) ReadPorts(bytes, headerLength, facts.key);
  return Verdict::kIp;
}

/// Length of the extension header of type `type` at `offset`; 0 when it is none or is cut off.
uint32_t ExtensionLength(const Bytes& bytes, uint8_t type, uint32_t offset) {
  if (!bytes.Has(offset, 8)) return 0;
  switch (type) {
    case IPPROTO_HOPOPTS:
    case IPPROTO_ROUTING:
    case IPPROTO_DSTOPTS:
    case IPPROTO_MH:
      return (bytes.U8(offset + 1) + 1u) * 8;
    case IPPROTO_FRAGMENT:
      return sizeof(ip6_frag);
    case IPPROTO_AH:
      return (bytes.U8(offset + 1) + 2u) * 4;
    default:
      return 0;
  }
}

/// Walks the extension headers for the protocol and its ports.
void ReadIpv6Transport(const Bytes& bytes, FlowKey& key) {
  uint32_t offset = sizeof(ip6_hdr);
  for (int i = 0; i < kMaxExtensionHeaders; ++i) {
    const uint32_t length = ExtensionLength(bytes, key.protocol, offset);
    if (length == 0) break;
    const bool laterFragment = key.protocol == IPPROTO_FRAGMENT && (bytes.U16(offset + 2) & 0xFFF8) != 0;
    key.protocol = bytes.U8(offset);
    if (laterFragment) return;
    offset += length;
  }
  ReadPorts(bytes, offset, key);
}

Verdict ReadIpv6(Bytes bytes, uint32_t wireLength, PacketFacts& facts) {
  if (!bytes.Has(0, sizeof(ip6_hdr)) || bytes.U8(0) >> 4 != 6) return Verdict::kMalformed;
  const uint32_t payloadLength = bytes.U16(4);
  facts.key.addressFamily = 1;
  facts.key.protocol = bytes.U8(6);
  const bool isJumbo = payloadLength == 0 && facts.key.protocol != IPPROTO_NONE;
  facts.ipBytes = isJumbo ? wireLength : payloadLength + uint32_t{sizeof(ip6_hdr)};
  facts.dscp = (bytes.U16(0) >> 6) & 0x3F;
  for (uint32_t i = 0; i < 4; ++i) {
    facts.key.source.words[i] = bytes.U32(8 + 4 * i);
    facts.key.destination.words[i] = bytes.U32(24 + 4 * i);
  }
  bytes.size = std::min(bytes.size, facts.ipBytes);
  ReadIpv6Transport(bytes, facts.key);
  return Verdict::kIp;
}

}  // namespace

bool IsSupportedLinkType(int dlt) { return FindLinkType(dlt) != nullptr; }

Verdict ReadPacket(int dlt, std::span<const uint8_t> captured, uint32_t originalLength, PacketFacts& facts) {
  facts = {};
  const Bytes bytes{captured.data(), static_cast<uint32_t>(captured.size())};
  const LinkType* link = FindLinkType(dlt);
  if (link == nullptr) return Verdict::kUnsupported;
  if (!bytes.Has(0, std::max<uint32_t>(link->headerSize, 1))) return Verdict::kMalformed;
  ReadLinkFacts(*link, bytes, facts);
  uint32_t offset = link->headerSize;
  uint16_t etherType = link->network == Network::kEtherType    ? bytes.U16(link->etherType)
                       : link->network == Network::kFamilyWord ? EtherTypeOfFamily(bytes.U32(0))
                                                               : EtherTypeOfVersion(bytes, 0);
  if (const Verdict verdict = SkipTags(bytes, etherType, offset); verdict != Verdict::kIp) return verdict;
  const Bytes network{bytes.data + offset, bytes.size - offset};
  const uint32_t wireLength = std::max(originalLength, bytes.size) - offset;
  return etherType == ETHERTYPE_IP ? ReadIpv4(network, wireLength, facts) : ReadIpv6(network, wireLength, facts);
}

}  // namespace tarq::meter
