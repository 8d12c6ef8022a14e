// Every encoder against what it is made of: the exported GPB steps and primitives, and the exported JSON templates
// filled by the C library. The same bytes, results and log lines come out in every room, and nothing is written behind
// it.
#include "encode/gpb.h"
#include "encode/native_ip_direction.h"
#include "frame/framework_binding.h"
#include "support/platform_double.h"
#include "support/random_records.h"
#include "support/texts.h"

namespace tarq {

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeData(const FlowEntry* entry, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeData(const FlowHopEntry* entry, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowNativeIpStatisticMsg(const NativeIpEntry* entry, uint8_t* out,
                                                                     uint32_t room);
namespace test {
namespace {

struct Encoded {
  int32_t result;
  std::string bytes;
  std::vector<LogLine> log;

  bool operator==(const Encoded&) const = default;
};

/// Runs an encoder in exactly that room, with a guard behind it.
template <class Encode>
Encoded In(uint32_t room, Encode encode) {
  constexpr size_t kGuard = 32;
  Platform::Get().log.clear();
  Platform::Get().calls.clear();
  std::string out(room + kGuard, '\x5A');
  Encoded encoded{encode(out.data(), room), "", Platform::Get().log};
  encoded.bytes = out.substr(0, static_cast<size_t>(std::max(encoded.result, 0)));
  EXPECT_EQ(out.substr(room), std::string(kGuard, '\x5A')) << "room " << room;
  return encoded;
}

template <auto kStep, uint32_t kContainer, class Entry>
int32_t GpbBySteps(const Entry& entry, char* out, uint32_t room) {
  if (room == 0) return -2;
  uint8_t body[1024], wrapped[1024];
  int32_t length = kStep(&entry, body, sizeof(body));
  if (length >= 0) length = SAVRO_TARQ_GPB_EncodeLengthDelimited(1, body, length, wrapped, sizeof(wrapped));
  if (length < 0) return length;
  return SAVRO_TARQ_GPB_EncodeLengthDelimited(kContainer, wrapped, length, reinterpret_cast<uint8_t*>(out), room);
}

// clang-format off
int32_t GpbBySteps(const FlowEntry&     e, char* out, uint32_t room) { return GpbBySteps<SAVRO_TARQ_FLOW_GPB_EncodeData, 2>(e, out, room); }
int32_t GpbBySteps(const FlowHopEntry&  e, char* out, uint32_t room) { return GpbBySteps<SAVRO_TARQ_FLOWHOP_GPB_EncodeData, 3>(e, out, room); }
int32_t GpbBySteps(const NativeIpEntry& e, char* out, uint32_t room) { return GpbBySteps<SAVRO_NTVTARQ_GPB_EncodeFlowNativeIpStatisticMsg, 8>(e, out, room); }
// clang-format on

template <class... Values>
std::string Printed(const char* format, Values... values) {
  std::string text(4096, '\0');
  text.resize(static_cast<size_t>(snprintf(text.data(), text.size(), format, values...)));
  return text;
}

/// Empty when the record cannot be encoded.
std::string JsonByTemplate(const FlowEntry& e) {
  if (e.addressFamily > 1) return "";
  const std::string source = Ip(e, e.source), destination = Ip(e, e.destination), vpnName = TextOf(e.vpnName),
                    ifName = TextOf(e.ifName);
  return "{" +
         Printed(SAVRO_TARQ_FLOW_STATS_JSON_TEMPLATE, e.flowId, e.direction, e.addressFamily, source.c_str(),
                 e.sourceMask, destination.c_str(), e.destinationMask, e.sourcePort, e.destinationPort, e.protocol,
                 vpnName.c_str(), e.ifIndex, ifName.c_str(), e.errorInfo, e.errorInfoExt, e.interval, e.periodId,
                 e.packetCount, e.byteCount, e.timestampSecond, e.timestampNanosecond, e.dscp, e.measureMode) +
         "},";
}

std::string JsonByTemplate(const FlowHopEntry& e) {
  return "{" +
         Printed(SAVRO_TARQ_FLOWHOP_STATS_JSON_TEMPLATE, e.flowId, e.direction, e.ifIndex, TextOf(e.ifName).c_str(),
                 e.errorInfo, e.errorInfoExt, e.periodId, e.packetCount, e.byteCount, e.timestampSecond,
                 e.timestampNanosecond, e.measureMode, e.sdwanPeerSiteId, e.sdwanSrcTnpId, e.sdwanDstTnpId) +
         "},";
}

std::string JsonByTemplate(const NativeIpEntry& e) {
  std::string members =
      Printed(R"("source-ip":"%s","destination-ip":"%s",)", Ipv4(e.sourceIp).c_str(), Ipv4(e.destinationIp).c_str()) +
      Printed(SAVRO_NTVTARQ_STATS_JSON_TEMPLATE, e.sourcePort, e.destinationPort, e.protocol, e.ifName,
              SAVRO_NTVTARQ_ENCODE_GetDirection(e.rawDirection, e.directionKind), e.interval, e.periodId, e.packetCount,
              e.byteCount, e.timestampSecond, e.timestampNanosecond, e.discardedPacketCount, e.discardedByteCount,
              e.discardReason, e.startTime, e.errorInfo, e.errorInfoExt, e.encapType);
  if (e.clientMac) members += Printed(R"("client-mac":"%s",)", Mac(e.clientMac).c_str());
  if (e.appName) members += Printed(R"("app-id":%u,"app-name":"%s",)", e.appId, e.appName);
  members.pop_back();
  return "{" + members + "},";
}

template <class Record>
class Roads : public ModuleTest {
 protected:
  void SetUp() override { ASSERT_EQ(SAVRO_TARQ_InitTlmFrmVtbl(), 0u); }

  void CompareGpb(const typename Record::Entry& entry, uint32_t room) {
    const Encoded expected = In(room, [&](char* out, uint32_t r) { return GpbBySteps(entry, out, r); });
    const Encoded encoded =
        In(room, [&](char* out, uint32_t r) { return Record::kGpb(&entry, reinterpret_cast<uint8_t*>(out), r); });
    ASSERT_TRUE(encoded == expected) << "room " << room << ": " << encoded.result << ", not " << expected.result;
  }
  void CompareJson(const typename Record::Entry& entry, uint32_t room) {
    const std::string text = JsonByTemplate(entry);
    const bool fits = text.size() + 1 <= room && !text.empty();  // its terminator, too
    const int32_t result = room < Record::kMinimumRoom ? -2 : fits ? static_cast<int32_t>(text.size()) : -1;
    const Encoded encoded = In(room, [&](char* out, uint32_t r) { return Record::kJson(&entry, out, r); });
    ASSERT_TRUE(encoded == (Encoded{result, result > 0 ? text : "", {}}))
        << "room " << room << ": " << encoded.result << "\n"
        << encoded.bytes << "\n"
        << text;
  }
};
using Records = testing::Types<RandomNativeIp, RandomFlow, RandomFlowHop>;
TYPED_TEST_SUITE(Roads, Records);

TYPED_TEST(Roads, LeadToTheSameFromEveryRecordInEveryRoom) {
  for (uint32_t how = 0; how < 3000 && !this->HasFatalFailure(); ++how) {
    TypeParam record(how);
    if constexpr (std::is_same_v<TypeParam, RandomFlow>) {
      if (how % 16 == 5) record.entry.addressFamily = 2 + how % 254;  // neither encoding has it
    }
    for (uint32_t room = 0; how < 6 && room < 700; ++room) this->CompareGpb(record.entry, room);
    this->CompareGpb(record.entry, static_cast<uint32_t>(g_random() % 700));
    this->CompareGpb(record.entry, 30720);
    for (const uint32_t room : {0u, 1u, 2u}) this->CompareJson(record.entry, TypeParam::kMinimumRoom - 1 + room);
    this->CompareJson(record.entry, 30720);
  }
}

/// Texts around all that has a limit: what the unchecked way takes, what GPB takes, what the least room takes.
using RoadsOfNativeIp = Roads<RandomNativeIp>;
TEST_F(RoadsOfNativeIp, LeadToTheSameFromLongTexts) {
  for (const size_t length : {127, 128, 338, 339, 340, 341, 342, 700, 839, 840, 841, 842, 843, 1020, 1030, 1500}) {
    for (uint32_t how = 1; how < 60 && !HasFatalFailure(); ++how) {
      RandomNativeIp record(how);
      record.ifName.assign(how == 1 ? length / 2 : how % 2 ? g_random() % (length + 1) : length, 'i');
      record.appName.assign(length - record.ifName.size(), 'p');
      record.Point(how);
      const uint32_t size = static_cast<uint32_t>(JsonByTemplate(record.entry).size());
      for (const uint32_t near : {0u, 1u, 2u}) CompareJson(record.entry, std::max(961u, size + near));
      for (const uint32_t room : {961u, 1000u, 30720u}) {
        CompareGpb(record.entry, room);
        CompareJson(record.entry, room);
      }
      for (uint32_t room = 440; how == 1 && room < 580; ++room) CompareGpb(record.entry, room);
    }
  }
}

TEST_F(RoadsOfNativeIp, AFailedWriteFailsTheRecord) {
  RandomNativeIp record(1);
  record.ifName.assign(400, 'i');  // too long to go unchecked
  record.Point(1);
  for (int piece = 1; piece <= 6; ++piece) {
    platform.Fail("sprintf_s", 1, piece);
    std::string out(4096, '\0');
    EXPECT_EQ(SAVRO_NTVTARQ_JSON_EncodeMsg(&record.entry, out.data(), 4096), -1) << piece;
  }
}

}  // namespace
}  // namespace test
}  // namespace tarq
