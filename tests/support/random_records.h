// Records for the encoders' tests, each kind with its encoders. `how` 0: all zero, 1: the largest, else random, with
// numbers around the lengths at which their encodings change.
#pragma once

#include <bit>
#include <cstring>
#include <random>
#include <string>

#include "encode/encoders.h"

namespace tarq::test {

inline std::mt19937_64 g_random(20261122);

/// Near a power of ten or of 2^7, or of any length.
inline uint64_t RandomNumber() {
  uint64_t power = 1;
  const uint64_t choice = g_random() % 3;
  for (uint64_t times = g_random() % 20; times > 0; --times) power *= choice == 0 ? 10 : 128;
  return choice == 2 ? g_random() >> g_random() % 64 : power - g_random() % 2;
}

template <class Entry>
void Randomize(Entry& entry, uint32_t how) {
  auto* bytes = reinterpret_cast<uint8_t*>(&entry);
  for (size_t i = 0; i < sizeof(entry); i += 8) {
    const uint64_t number = std::rotl(RandomNumber(), static_cast<int>(g_random() % 4 * 16));
    const uint64_t word = how == 0 ? 0 : how == 1 ? ~0ull : number;
    memcpy(bytes + i, &word, std::min<size_t>(8, sizeof(entry) - i));
  }
}
template <size_t N>
void SetText(char (&field)[N], uint32_t how) {
  const size_t length = how == 0 ? 0 : how == 1 ? N - 1 : g_random() % (N + 1);  // N: without a terminator
  memset(field, 0, N);
  if (how % 3 == 2) memset(field, 'z', N);  // what is behind the terminator is not the text's
  memset(field, 'a' + static_cast<int>(how % 26), length);
  if (length < N) field[length] = '\0';
}
struct RandomFlow {
  using Entry = FlowEntry;
  static constexpr uint32_t kMinimumRoom = 1197;
  static constexpr auto kGpb = SAVRO_TARQ_FLOW_GPB_EncodeMsg;
  static constexpr auto kJson = SAVRO_TARQ_FLOW_JSON_EncodeMsg;
  Entry entry;

  explicit RandomFlow(uint32_t how) {
    Randomize(entry, how);
    entry.addressFamily = how == 1 ? 1 : how % 2;
    SetText(entry.vpnName, how);
    SetText(entry.ifName, how);
  }
};

struct RandomFlowHop {
  using Entry = FlowHopEntry;
  static constexpr uint32_t kMinimumRoom = 839;
  static constexpr auto kGpb = SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg;
  static constexpr auto kJson = SAVRO_TARQ_FLOWHOP_JSON_EncodeMsg;
  Entry entry;

  explicit RandomFlowHop(uint32_t how) {
    Randomize(entry, how);
    if (how >= 1) entry.sdwanFlag = how == 1 ? 1 : how % 4;
    if (how >= 2 && how % 3 == 0) (how % 2 ? entry.sdwanSrcTnpId : entry.sdwanDstTnpId) = 0;
    if (how >= 2 && how % 7 == 0) entry.sdwanPeerSiteId = 0;
    SetText(entry.ifName, how);
  }
};

struct RandomNativeIp {
  using Entry = NativeIpEntry;
  static constexpr uint32_t kMinimumRoom = 961;
  static constexpr auto kGpb = SAVRO_NTVTARQ_GPB_EncodeMsg;
  static constexpr auto kJson = SAVRO_NTVTARQ_JSON_EncodeMsg;
  Entry entry;
  uint8_t mac[6];
  std::string ifName, appName;

  explicit RandomNativeIp(uint32_t how) {
    Randomize(entry, how);
    Randomize(mac, how);
    if (how >= 2) {
      ifName.assign(g_random() % 70, 'i');
      appName.assign(g_random() % 70, 'p');
      entry.directionKind = how % 5;
      entry.rawDirection = how % 4;
    }
    Point(how);
  }
  RandomNativeIp(const RandomNativeIp&) = delete;

  /// Sets the record's pointers, as `how` has it.
  void Point(uint32_t how) {
    entry.ifName = ifName.c_str();
    entry.appName = how % 2 ? appName.c_str() : nullptr;
    entry.clientMac = how == 0 || how % 3 == 2 ? nullptr : mac;
  }
};

}  // namespace tarq::test
