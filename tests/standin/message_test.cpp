#include "platform/message.h"

#include <cstring>
#include <random>

#include "standin/packed_list.h"
#include "support.h"

namespace tarq::standin {
std::mt19937 g_random(4711);
const char* const kTexts[] = {"", "eth0", "a-name-of-some-length", nullptr};
const uint8_t kMacs[][6] = {{1, 2, 3, 4, 5, 6}, {0, 0, 0, 0, 0, 1}};

template <class Entry>
Entry Make() {
  Entry entry;
  std::generate_n(reinterpret_cast<uint8_t*>(&entry), sizeof entry, [] { return static_cast<uint8_t>(g_random()); });
  return entry;
}
NativeIpEntry MakeNativeIp() {
  auto entry = Make<NativeIpEntry>();
  entry.clientMac = g_random() % 3 == 0 ? nullptr : kMacs[g_random() % 2];
  entry.ifName = kTexts[g_random() % 3];
  entry.appName = kTexts[g_random() % 4];
  return entry;
}

/// The record's bytes, pointers replaced by all that they lead to.
std::string Text(NativeIpEntry entry) {
  std::string text = std::string(entry.ifName).append(entry.appName == nullptr ? "|none|" : entry.appName);
  if (entry.clientMac != nullptr) text.append(reinterpret_cast<const char*>(entry.clientMac), 6);
  entry.clientMac = nullptr;
  entry.ifName = entry.appName = nullptr;
  return text.append(reinterpret_cast<const char*>(&entry), sizeof entry);
}

/// Unpacks an exact, unaligned copy, so that a sanitizer sees every step outside it, and reads every entry.
std::vector<std::string> Unpack(const std::vector<uint8_t>& message) {
  std::vector<uint8_t> copy(1 + message.size());
  std::copy(message.begin(), message.end(), copy.begin() + 1);
  StatisticsList list{};
  ntvtarq_entry_list_savro__unpack(copy.data() + 1, static_cast<uint32_t>(message.size()), &list);
  copy = {};
  std::vector<std::string> texts;
  const auto* const entries = reinterpret_cast<const NativeIpEntry*>(list.words[1]);
  for (uint64_t i = 0; i < list.words[2]; ++i) texts.push_back(Text(entries[i]));
  ntvtarq_entry_list_savro_free__unpacked(&list);
  return texts;
}

TEST(NativeIpList, RoundTripKeepsEveryRecordAndTheLimit) {
  for (const uint32_t limit : {1u, 300u, 1000u, 30000u}) {
    wire::ListPacker<NativeIpEntry> packer(limit);
    std::vector<std::string> sent, received;
    for (int i = 0; i <= 500; ++i) {
      const NativeIpEntry entry = MakeNativeIp();
      if (i < 500) sent.push_back(Text(entry));
      if (i < 500 && packer.Add(entry)) continue;
      const uint32_t count = packer.count();
      const std::vector<uint8_t> list = packer.Take();
      EXPECT_TRUE(list.size() <= limit || count == 1) << list.size();
      EXPECT_LE(list.size(), sizeof(wire::ListHeader) + count * sizeof entry + 40) << "texts are not shared";
      for (auto& text : Unpack(list)) received.push_back(std::move(text));
      packer.Add(entry);
    }
    EXPECT_TRUE(sent == received) << limit;
  }
}

TEST(FlowLists, ArriveAsTheyWereSentAndOnlyAsTheirKind) {
  wire::ListPacker<FlowEntry> packer(1000);
  const auto entry = Make<FlowEntry>();
  while (packer.Add(entry)) continue;
  const std::vector<uint8_t> list = packer.Take();
  StatisticsList flow{}, hop{};
  EXPECT_EQ(tarq_flow_statistics_list_to_savro__unpack(list.data(), static_cast<uint32_t>(list.size()), &flow), 0u);
  EXPECT_NE(tarq_flow_hop_statistics_list_to_savro__unpack(list.data(), static_cast<uint32_t>(list.size()), &hop), 0u);
  ASSERT_THAT((std::vector{flow.words[0], hop.words[0], hop.words[1]}), ElementsAre(5, 0, 0));
  EXPECT_EQ(std::memcmp(&reinterpret_cast<const FlowEntry*>(flow.words[1])[4], &entry, sizeof entry), 0);
  tarq_flow_statistics_list_to_savro_free__unpacked(&flow);
}

TEST(NativeIpList, LongTextsAreCutAndForgedOnesRefused) {
  FailureLines failures;
  wire::ListPacker<NativeIpEntry> packer(100000);
  NativeIpEntry entry{};
  const std::string longName(300, 'n');
  entry.ifName = longName.c_str();
  entry.appName = "app";
  packer.Add(entry);
  std::vector<uint8_t> list = packer.Take();
  ASSERT_THAT(Unpack(list), ElementsAre(HasSubstr(std::string(wire::kMaxTextLength, 'n') + "app")));
  list[sizeof(wire::ListHeader) + sizeof entry + wire::kMaxTextLength] = 'n';  // runs on into the next text
  EXPECT_THAT(Unpack(list), SizeIs(0));
  EXPECT_THAT(failures.Get(), ElementsAre(HasSubstr("no interface name")));
}

TEST(NativeIpList, DamageIsRefusedOrStaysInside) {
  FailureLines failures;
  wire::ListPacker<NativeIpEntry> packer(100000);
  for (int i = 0; i < 5; ++i) packer.Add(MakeNativeIp());
  const std::vector<uint8_t> good = packer.Take();
  for (size_t size = 0; size < good.size(); ++size)
    EXPECT_THAT(Unpack({good.begin(), good.begin() + ptrdiff_t(size)}), SizeIs(0));
  EXPECT_THAT(failures.Get(), SizeIs(good.size()));
  for (int i = 0; i < 20000; ++i) {
    auto bad = good;
    for (uint32_t n = 1 + g_random() % 3; n > 0; --n) bad[g_random() % bad.size()] = static_cast<uint8_t>(g_random());
    const bool headerKept = std::equal(good.begin(), good.begin() + sizeof(wire::ListHeader), bad.begin());
    EXPECT_TRUE(Unpack(bad).empty() || headerKept);
  }
}
}  // namespace tarq::standin
