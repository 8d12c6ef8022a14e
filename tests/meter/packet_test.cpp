// What is read from a packet, for every link type, wrapping and header that the meter looks through.
#include "meter/packet.h"

#include <gtest/gtest.h>
#include <pcap/dlt.h>

#include <memory>
#include <string>
#include <vector>

namespace tarq::meter {
namespace {

using Bytes = std::vector<uint8_t>;
Bytes operator+(Bytes left, const Bytes& right) { return left.insert(left.end(), right.begin(), right.end()), left; }
Bytes Repeat(const Bytes& part, int times) { return times == 0 ? Bytes{} : part + Repeat(part, times - 1); }
Bytes Word(int value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }
Bytes Byte(int value) { return {static_cast<uint8_t>(value)}; }

const Bytes kMac{2, 3, 4, 5, 6, 7};
Bytes Ethernet(int type) { return Bytes(6, 0xFF) + kMac + Word(type); }
Bytes Cooked(int type, int macLength) { return Word(type) + Word(1) + Word(macLength) + kMac + Bytes{0, 0, 8, 0}; }
Bytes Cooked2(int type) { return Bytes{0x86, 0xDD, 0, 0, 0, 0, 1, 2, 0, 1} + Byte(type) + Byte(6) + kMac + Word(0); }
Bytes Tag(int next) { return Word(0x2005) + Word(next); }
const Bytes kLabel{0x12, 0x34, 0x50, 64}, kLastLabel{0x12, 0x34, 0x51, 64};

/// Headers from 10.0.0.1 to 192.0.2.2 and from 2001:db8::1 to 2001:db8::2, DSCP 46.
Bytes Ip4(int protocol, int length, int fragment = 0, int options = 0) {
  return Byte(0x45 + options / 4) + Byte(0xB9) + Word(length) + Word(1) + Word(fragment) + Byte(64) + Byte(protocol) +
         Bytes{0, 0, 10, 0, 0, 1, 192, 0, 2, 2} + Bytes(options, 1);
}
Bytes Ip6(int next, int length) {
  const Bytes net{0x20, 1, 0x0D, 0xB8};
  return Bytes{0x6B, 0x90, 0, 0} + Word(length) + Byte(next) + Byte(64) + net + Bytes(11, 0) + Byte(1) + net +
         Bytes(11, 0) + Byte(2);
}
const Bytes kUdp = Word(1234) + Word(53) + Bytes{0, 8, 0, 0}, kTcp = Word(4321) + Word(443) + Bytes(16, 0);
const Bytes kUdp4 = Ip4(17, 28) + kUdp, kTcp6 = Ip6(6, 20) + kTcp, kEth4 = Ethernet(0x0800), kEth6 = Ethernet(0x86DD);

struct Case {
  const char* name;
  int dlt;
  Bytes bytes;
  Verdict verdict;
  int family = 0, protocol = 17, source = 1234, destination = 53;
  uint32_t ipBytes = 28;
  bool hasMac = true;
  int direction = 0, ifIndex = 0;
  uint32_t notCaptured = 0;
};
constexpr auto kNo = Verdict::kNotIp, kBad = Verdict::kMalformed, kWrapped = Verdict::kUnsupported, kOk = Verdict::kIp;
constexpr int kEth = DLT_EN10MB;

// clang-format off
const Case kCases[] = {
    {"Ethernet, padded", kEth, kEth4 + kUdp4 + Bytes(18, 0), kOk},
    {"options", kEth, kEth4 + Ip4(17, 40, 0, 12) + kUdp, kOk, 0, 17, 1234, 53, 40},
    {"VLAN stack", kEth, Ethernet(0x88A8) + Tag(0x8100) + Tag(0x9100) + Tag(0x0800) + kUdp4, kOk},
    {"MPLS stack, IPv6", kEth, Ethernet(0x8847) + kLabel + kLastLabel + kTcp6, kOk, 1, 6, 4321, 443, 60},
    {"VLAN and MPLS multicast", kEth, Ethernet(0x8100) + Tag(0x8848) + kLastLabel + kUdp4, kOk},
    {"MPLS pseudowire", kEth, Ethernet(0x8847) + kLastLabel + Bytes(4, 0) + kEth4 + kUdp4, kWrapped},
    {"endless tags", kEth, Ethernet(0x8100) + Repeat(Tag(0x8100), 99), kWrapped},
    {"endless labels", kEth, Ethernet(0x8847) + Repeat(kLabel, 99), kWrapped},
    {"PPPoE", kEth, Ethernet(0x8864) + Bytes(40, 0), kWrapped},
    {"ARP", kEth, Ethernet(0x0806) + Bytes(28, 0), kNo},
    {"cooked, out", DLT_LINUX_SLL, Cooked(4, 6) + kUdp4, kOk, 0, 17, 1234, 53, 28, true, 2},
    {"cooked, multicast, no MAC", DLT_LINUX_SLL, Cooked(2, 0) + kUdp4, kOk, 0, 17, 1234, 53, 28, false, 1},
    {"cooked, for others", DLT_LINUX_SLL, Cooked(3, 6) + kUdp4, kOk},
    {"cooked 2, in", DLT_LINUX_SLL2, Cooked2(0) + kTcp6, kOk, 1, 6, 4321, 443, 60, true, 1, 258},
    {"raw", DLT_RAW, kTcp6, kOk, 1, 6, 4321, 443, 60, false},
    {"raw IPv4", DLT_IPV4, kUdp4, kOk, 0, 17, 1234, 53, 28, false},
    {"raw IPv6", DLT_IPV6, kTcp6, kOk, 1, 6, 4321, 443, 60, false},
    {"raw, no IP", DLT_RAW, Bytes(40, 0x10), kNo},
    {"loopback, little-endian", DLT_NULL, Bytes{2, 0, 0, 0} + kUdp4, kOk, 0, 17, 1234, 53, 28, false},
    {"loopback, big-endian", DLT_LOOP, Bytes{0, 0, 0, 30} + kTcp6, kOk, 1, 6, 4321, 443, 60, false},
    {"loopback, other family", DLT_NULL, Bytes{16, 0, 0, 0} + kUdp4, kNo},
    {"first fragment", kEth, kEth4 + Ip4(17, 28, 0x2000) + kUdp, kOk},
    {"later fragment", kEth, kEth4 + Ip4(17, 28, 0x2001) + kUdp, kOk, 0, 17, 0, 0},
    {"IPv6 extension headers", kEth, kEth6 + Ip6(0, 60) + Byte(43) + Bytes(7, 0) + Byte(60) + Bytes(7, 0) + Word(0x3301)
        + Bytes(14, 0) + Word(0x0601) + Bytes(10, 0) + kTcp, kOk, 1, 6, 4321, 443, 100},
    {"IPv6 first fragment", kEth, kEth6 + Ip6(44, 28) + Bytes{6, 0, 0, 1, 0, 0, 0, 1} + kTcp, kOk, 1, 6, 4321, 443, 68},
    {"IPv6 later fragment", kEth, kEth6 + Ip6(44, 28) + Bytes{6, 0, 0, 8, 0, 0, 0, 1} + kTcp, kOk, 1, 6, 0, 0, 68},
    {"IPv6, no payload", kEth, kEth6 + Ip6(59, 0) + Bytes(6, 9), kOk, 1, 59, 0, 0, 40},
    {"IPv6 jumbo", kEth, Ethernet(0x8100) + Tag(0x86DD) + Ip6(6, 0) + kTcp, kOk, 1, 6, 4321, 443, 70060, true, 0, 0, 70000},
    {"IPv4 length 0", kEth, kEth4 + Ip4(6, 0) + kTcp, kOk, 0, 6, 4321, 443, 65540, true, 0, 0, 65500},
    {"ports cut off", kEth, kEth4 + Ip4(6, 1500) + Bytes{0, 80, 1}, kOk, 0, 6, 0, 0, 1500, true, 0, 0, 1477},
    {"ports in the padding", kEth, kEth4 + Ip4(17, 22) + Bytes(26, 7), kOk, 0, 17, 0, 0, 22},
    {"SCTP", kEth, kEth4 + Ip4(132, 28) + kUdp, kOk, 0, 132},
    {"DCCP", kEth, kEth4 + Ip4(33, 28) + kUdp, kOk, 0, 33},
    {"UDP-Lite", kEth, kEth4 + Ip4(136, 28) + kUdp, kOk, 0, 136},
    {"ICMP", kEth, kEth4 + Ip4(1, 28) + kUdp, kOk, 0, 1, 0, 0},
    {"header length too small", kEth, kEth4 + Byte(0x44) + Bytes(30, 0), kBad},
    {"total below header length", kEth, kEth4 + Ip4(17, 20, 0, 12), kBad},
    {"version 6 under type IPv4", kEth, kEth4 + kTcp6, kBad},
    {"unknown link type", DLT_IEEE802_11, kUdp4, kWrapped},
};
// clang-format on

/// Reads the first `captured` bytes, from the heap: there the address sanitizer sees every byte too far.
Verdict Read(const Case& one, size_t captured, PacketFacts& facts) {
  const std::unique_ptr<uint8_t[]> bytes(new uint8_t[captured]);
  std::copy_n(one.bytes.begin(), captured, bytes.get());
  const auto length = static_cast<uint32_t>(one.bytes.size()) + one.notCaptured;
  return ReadPacket(one.dlt, {bytes.get(), captured}, length, facts);
}

TEST(Packet, EveryHeaderIsReadForWhatItSays) {
  for (const Case& one : kCases) {
    SCOPED_TRACE(one.name);
    PacketFacts facts;
    ASSERT_EQ(Read(one, one.bytes.size(), facts), one.verdict);
    if (one.verdict != kOk) continue;
    const FlowKey& key = facts.key;
    EXPECT_EQ(std::tuple(key.addressFamily, key.protocol, key.sourcePort, key.destinationPort, key.ifIndex),
              std::tuple(one.family, one.protocol, one.source, one.destination, one.ifIndex));
    EXPECT_EQ(std::tuple(facts.ipBytes, facts.direction, facts.dscp), std::tuple(one.ipBytes, one.direction, 46));
    EXPECT_EQ(Bytes(facts.sourceMac.begin(), facts.sourceMac.end()), one.hasMac ? kMac : Bytes(6, 0));
    EXPECT_EQ(
        std::tuple(key.source.words[0], key.source.words[3], key.destination.words[0], key.destination.words[3]),
        one.family == 1 ? std::tuple(0x20010DB8u, 1u, 0x20010DB8u, 2u) : std::tuple(0x0A000001u, 0u, 0xC0000202u, 0u));
  }
}

TEST(Packet, CutOffAnywhereNothingIsReadBeyondTheEnd) {
  for (const Case& one : kCases) {
    for (size_t captured = 0; captured < one.bytes.size(); ++captured) {
      SCOPED_TRACE(one.name + std::string(", captured ") + std::to_string(captured));
      PacketFacts facts;
      const Verdict verdict = Read(one, captured, facts);
      if (one.verdict != kOk) continue;
      ASSERT_TRUE(verdict == kBad || (verdict == kOk && facts.ipBytes == one.ipBytes));
      EXPECT_TRUE(facts.key.sourcePort == 0 || facts.key.sourcePort == one.source);
    }
  }
}

}  // namespace
}  // namespace tarq::meter
