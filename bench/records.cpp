#include "bench/records.h"

#include <cstring>
#include <iterator>

namespace tarq::bench {
namespace {

constexpr const char* kInterfaces[] = {"GigabitEthernet0/1/0", "GigabitEthernet0/1/1", "25GE0/2/0", "Eth-Trunk12"};
constexpr const char* kVpns[] = {"", "", "", "branch-west"};
constexpr const char* kApplications[] = {"https", "domain", "ssh", "ntp", nullptr};
constexpr uint16_t kServices[] = {443, 443, 53, 22, 123};
constexpr uint8_t kMacs[][6] = {{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, {0xAC, 0xDE, 0x48, 0x00, 0x11, 0x22}};
constexpr uint32_t kSecond = 1'795'385'000;

template <class Choices>
auto Pick(const Choices& choices, Random& random) {
  return &choices[random() % std::size(choices)];
}

/// What all kinds have.
template <class Entry>
void FillCounts(Entry& entry, Random& random) {
  entry.periodId = kSecond / 10;
  entry.packetCount = random() % 10'000;
  entry.byteCount = entry.packetCount * (60 + random() % 1400);
  entry.timestampSecond = kSecond;
  entry.timestampNanosecond = random() % 1'000'000'000;
}

}  // namespace

void Fill(FlowEntry& entry, Random& random) {
  FillCounts(entry, random);
  entry.flowId = uint64_t{random()} << 32 | random();
  entry.direction = random() % 2;
  entry.addressFamily = random() % 5 == 0;
  for (auto* address : {&entry.source, &entry.destination}) {
    for (uint32_t& word : address->words) word = random();
  }
  entry.sourceMask = entry.destinationMask = entry.addressFamily == 0 ? 32 : 128;
  entry.sourcePort = static_cast<uint16_t>(1024 + random() % 64'000);
  entry.destinationPort = *Pick(kServices, random);
  entry.protocol = 6;
  entry.ifIndex = random() % 1000;
  std::strcpy(entry.ifName, *Pick(kInterfaces, random));
  std::strcpy(entry.vpnName, *Pick(kVpns, random));
  entry.interval = 10;
}

void Fill(FlowHopEntry& entry, Random& random) {
  FillCounts(entry, random);
  entry.flowId = uint64_t{random()} << 32 | random();
  entry.direction = random() % 2;
  entry.ifIndex = random() % 1000;
  std::strcpy(entry.ifName, *Pick(kInterfaces, random));
}

void Fill(NativeIpEntry& entry, Random& random) {
  FillCounts(entry, random);
  entry.sourceIp = random();
  entry.destinationIp = random();
  entry.sourcePort = static_cast<uint16_t>(1024 + random() % 64'000);
  entry.destinationPort = *Pick(kServices, random);
  entry.protocol = 6;
  entry.directionKind = entry.rawDirection = 1 + random() % 2;
  entry.startTime = kSecond - random() % 600;
  entry.interval = 10;
  entry.clientMac = *Pick(kMacs, random);
  entry.ifName = *Pick(kInterfaces, random);
  entry.appId = random() % 5000;
  entry.appName = *Pick(kApplications, random);
}

}  // namespace tarq::bench
