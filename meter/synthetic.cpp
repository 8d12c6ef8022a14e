#include "meter/synthetic.h"

#include <netinet/in.h>

#include <array>

#include "meter/reporter.h"

namespace tarq::meter {
namespace {

constexpr std::array<uint16_t, 5> kTcpServices{443, 80, 22, 25, 993};
constexpr std::array<uint16_t, 4> kUdpServices{53, 443, 123, 514};
constexpr uint8_t kDscps[] = {0, 0, 0, 10, 46};  // mostly best effort
constexpr uint16_t kFirstClientPort = 32768;
constexpr uint32_t kMinBytes = 64;
constexpr uint32_t kMaxBytes = 1500;

void SetPorts(FlowKey& key, uint64_t random) {
  key.sourcePort = static_cast<uint16_t>(kFirstClientPort + random % 28000);
  random /= 28000;
  if (key.protocol == IPPROTO_TCP) key.destinationPort = kTcpServices[random % kTcpServices.size()];
  if (key.protocol == IPPROTO_UDP) key.destinationPort = kUdpServices[random % kUdpServices.size()];
}

}  // namespace

PacketFacts SyntheticTraffic::Flow(uint32_t index) const {
  RandomSequence random{Mix(Mix(seed_) + index)};
  PacketFacts facts{};
  FlowKey& key = facts.key;
  const uint64_t kind = random() % 10;
  key.addressFamily = kind < 3 ? 1 : 0;
  const bool isIpv6 = key.addressFamily == 1;
  const uint64_t protocol = random() % 10;
  const uint8_t icmp = isIpv6 ? uint8_t{IPPROTO_ICMPV6} : uint8_t{IPPROTO_ICMP};
  key.protocol = protocol < 6 ? uint8_t{IPPROTO_TCP} : protocol < 9 ? uint8_t{IPPROTO_UDP} : icmp;
  // The source tells the flows apart; destinations are those set aside for documentation.
  const auto server = static_cast<uint32_t>(random() % 200 + 1);
  if (isIpv6) {
    key.source = {{0x20010DB8, 0, 0, index}};
    key.destination = {{0x20010DB8, 0xFFFF, 0, server}};
  } else {
    key.source = {{0x0A000000 | index, 0, 0, 0}};
    key.destination = {{0xC6336400 | server, 0, 0, 0}};
  }
  if (protocol < 9) SetPorts(key, random());
  facts.dscp = kDscps[random() % std::size(kDscps)];
  facts.direction = random() % 2 == 0 ? kIn : kOut;
  facts.sourceMac = {
      2, 0, 0, static_cast<uint8_t>(index >> 16), static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
  return facts;
}

void SyntheticTraffic::Round(const std::function<void(const PacketFacts&)>& take) {
  for (uint32_t index = 0; index < flows_; ++index) {
    PacketFacts facts = Flow(index);
    for (uint64_t packets = counts_() % kMaxPacketsPerFlow + 1; packets != 0; --packets) {
      facts.ipBytes = static_cast<uint32_t>(kMinBytes + counts_() % (kMaxBytes - kMinBytes + 1));
      take(facts);
    }
  }
}

uint64_t SyntheticTraffic::RecordsPerRound() const {
  uint64_t records = 0;
  for (uint32_t index = 0; index < flows_; ++index) records += RecordsPerFlow(Flow(index).key);
  return records;
}

}  // namespace tarq::meter
