#include "load/traffic.h"

#include <cstring>

#include "bench/records.h"
#include "standin/packed_list.h"

namespace tarq::load {
namespace {

constexpr size_t kFramesPerKind = 48;

template <class Entry>
Frames MakeFrames() {
  const auto records = bench::MakeRecords<Entry>(kFramesPerKind * kRecordsPerMessage);
  auto record = records.begin();
  Frames made{{}, sizeof(Entry), offsetof(Entry, periodId), sizeof(Entry::periodId)};
  wire::ListPacker<Entry> packer(wire::kMaxMessageLength);
  while (made.frames.size() < kFramesPerKind) {
    for (uint32_t i = 0; i < kRecordsPerMessage; ++i) packer.Add(*record++);
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
