// All that the entries of an unpacked list lead to is there. Input: message; at the end, kind.
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

volatile size_t g_touched;
void Touch(const void* bytes, size_t size) {
  g_touched = std::count_if(static_cast<const char*>(bytes), static_cast<const char*>(bytes) + size, isdigit);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const Kind kind = input.PickValueInArray(kKinds);
  auto message = input.ConsumeRemainingBytes<uint8_t>();
  StatisticsList list{};
  const uint32_t ret = kind.unpack(message.data(), static_cast<uint32_t>(message.size()), &list);
  message = std::vector<uint8_t>();  // no list refers to it
  const auto* const entries = reinterpret_cast<const NativeIpEntry*>(list.words[1]);
  const size_t count = list.words[kind.countWord];
  Check(ret == 0 || count == 0, "a refused list has no entries");
  Touch(entries, count * kind.entrySize);
  for (size_t i = 0; i < count && kind.countWord == 2; ++i) {
    if (entries[i].clientMac != nullptr) Touch(entries[i].clientMac, 6);
    Check(strlen(entries[i].ifName) <= wire::kMaxTextLength, "an interface name, within the limit");
    Check(!entries[i].appName || strlen(entries[i].appName) <= wire::kMaxTextLength, "an application name or none");
  }
  kind.free(&list);
  return 0;
}

}  // namespace tarq::fuzz
