// An unpacked list says what the packed one says, and all that its entries lead to is there. Input: message; at the
// end, kind.
#include "standin/packed_list.h"

#include "check.h"

namespace tarq::fuzz {

constexpr struct Kind {
  uint32_t (*unpack)(const void*, uint32_t, StatisticsList*);
  void (*free)(StatisticsList*);
  int countWord;
  size_t entrySize;
} kKinds[] = {
    {ntvtarq_entry_list_savro__unpack, ntvtarq_entry_list_savro_free__unpacked, 2, 136},
    {tarq_flow_statistics_list_to_savro__unpack, tarq_flow_statistics_list_to_savro_free__unpacked, 0, 192},
    {tarq_flow_hop_statistics_list_to_savro__unpack, tarq_flow_hop_statistics_list_to_savro_free__unpacked, 0, 136}};

/// An unpacked entry is the packed one, with pointers to what its offsets lead to.
void CheckEntry(const NativeIpEntry& entry, const uint8_t* packedEntry, const uint8_t* list) {
  NativeIpEntry packed;
  memcpy(&packed, packedEntry, sizeof packed);
  const auto at = [list](const void* offset) { return list + reinterpret_cast<uint64_t>(offset); };
  const auto text = [&at](const void* offset) { return std::string(reinterpret_cast<const char*>(at(offset))); };
  Check(!entry.clientMac == !packed.clientMac && !entry.appName == !packed.appName, "none where there was none");
  if (entry.clientMac) Check(memcmp(entry.clientMac, at(packed.clientMac), 6) == 0, "the MAC");
  if (entry.appName) Check(entry.appName == text(packed.appName), "the application name");
  Check(entry.ifName == text(packed.ifName), "the interface name");
  Check(strlen(entry.ifName) <= wire::kMaxTextLength, "an interface name, within the limit");
  Check(!entry.appName || strlen(entry.appName) <= wire::kMaxTextLength, "an application name, within the limit");
  packed.clientMac = entry.clientMac, packed.ifName = entry.ifName, packed.appName = entry.appName;
  Check(memcmp(&packed, &entry, sizeof packed) == 0, "all else as it was packed");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const Kind kind = input.PickValueInArray(kKinds);
  const auto packed = input.ConsumeRemainingBytes<uint8_t>();
  auto message = packed;
  StatisticsList list{};
  const uint32_t ret = kind.unpack(message.data(), static_cast<uint32_t>(message.size()), &list);
  message = std::vector<uint8_t>();  // no list refers to it
  const auto* const entries = reinterpret_cast<const uint8_t*>(list.words[1]);
  const size_t count = list.words[kind.countWord];
  Check(ret == 0 || count == 0, "a refused list has no entries");
  for (size_t at = 0; at < count * kind.entrySize; at += kind.entrySize) {
    const uint8_t* const packedEntry = &packed[sizeof(wire::ListHeader) + at];
    if (kind.countWord == 2) {
      CheckEntry(*reinterpret_cast<const NativeIpEntry*>(entries + at), packedEntry, packed.data());
    } else {
      Check(memcmp(entries + at, packedEntry, kind.entrySize) == 0, "an entry as it was packed");
    }
  }
  kind.free(&list);
  return 0;
}

}  // namespace tarq::fuzz
