#include "load/traffic.h"

#include <cstring>
#include <random>

#include "standin/packed_list.h"

namespace tarq::load {
namespace {

constexpr size_t kFramesPerKind = 48;
const char* const kInterfaces[] = {"GigabitEthernet0/1/0", "GigabitEthernet0/1/1", "25GE0/2/0", "Eth-Trunk12"};
const char* const kApplications[] = {"https", "domain", "ssh", "ntp", nullptr};

using Random = std::mt19937;

void Fill(FlowEntry& entry, Random& random) {
  entry.flowId = uint64_t{random()} << 32 | random();
  entry.addressFamily = random() % 5 == 0;
  for (auto* address : {&entry.source, &entry.destination}) {
    for (uint32_t& word : address->words) word = random();
  }
  entry.sourceMask = entry.destinationMask = entry.addressFamily == 0 ? 32 : 128;
  entry.sourcePort = static_cast<uint16_t>(random());
  entry.destinationPort = 443;
  entry.protocol = 6;
  entry.ifIndex = random() % 64;
  std::strcpy(entry.ifName, kInterfaces[random() % 4]);
  entry.interval = 10;
  entry.packetCount = random() % 10'000;
  entry.byteCount = entry.packetCount * (60 + random() % 1400);
  entry.timestampSecond = 1'795'385'000;
  entry.timestampNanosecond = random() % 1'000'000'000;
}

void Fill(FlowHopEntry& entry, Random& random) {
  entry.flowId = uint64_t{random()} << 32 | random();
  entry.ifIndex = random() % 64;
  std::strcpy(entry.ifName, kInterfaces[random() % 4]);
  entry.packetCount = random() % 10'000;
  entry.byteCount = entry.packetCount * (60 + random() % 1400);
  entry.timestampSecond = 1'795'385'000;
  entry.timestampNanosecond = random() % 1'000'000'000;
}

void Fill(NativeIpEntry& entry, Random& random) {
  entry.sourceIp = random();
  entry.destinationIp = random();
  entry.sourcePort = static_cast<uint16_t>(random());
  entry.destinationPort = 443;
  entry.protocol = 6;
  entry.ifName = kInterfaces[random() % 4];
  entry.appName = kApplications[random() % 5];
  entry.interval = 10;
  entry.packetCount = random() % 10'000;
  entry.byteCount = entry.packetCount * (60 + random() % 1400);
  entry.timestampSecond = 1'795'385'000;
  entry.timestampNanosecond = random() % 1'000'000'000;
}

template <class Entry>
Frames MakeFrames() {
  Random random(1);
  Frames made{{}, sizeof(Entry), offsetof(Entry, periodId), sizeof(Entry::periodId)};
  wire::ListPacker<Entry> packer(wire::kMaxMessageLength);
  while (made.frames.size() < kFramesPerKind) {
    for (uint32_t i = 0; i < kRecordsPerMessage; ++i) {
      Entry entry{};
      Fill(entry, random);
      packer.Add(entry);
    }
    const auto list = packer.Take();
    const wire::FrameHeader header{wire::MsgIdOf(Entry{}), static_cast<uint32_t>(list.size())};
    made.frames.emplace_back(reinterpret_cast<const char*>(&header), sizeof header);
    made.frames.back().append(reinterpret_cast<const char*>(list.data()), list.size());
  }
  return made;
}

}  // namespace

void Frames::SetPeriod(uint64_t period) {
  for (std::string& frame : frames) {
    char* entry = frame.data() + sizeof(wire::FrameHeader) + sizeof(wire::ListHeader) + periodOffset;
    for (uint32_t i = 0; i < kRecordsPerMessage; ++i, entry += entrySize) std::memcpy(entry, &period, periodSize);
  }
}

std::array<Frames, kKindCount> MakeTraffic() {
  return {MakeFrames<FlowEntry>(), MakeFrames<FlowHopEntry>(), MakeFrames<NativeIpEntry>()};
}

}  // namespace tarq::load
