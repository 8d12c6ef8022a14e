// The encoders, judged by software that is not ours: stock protobuf decodes the GPB, a stock parser reads the JSON.
#include <gmock/gmock.h>
#include <google/protobuf/io/coded_stream.h>

#include <nlohmann/json.hpp>

#include "encode/address_text.h"
#include "encode/encoders.h"
#include "encode/gpb.h"
#include "encode/native_ip_direction.h"
#include "frame/framework_binding.h"
#include "support/expected.h"
#include "support/platform_double.h"
#include "support/random_records.h"
#include "tarq.pb.h"

namespace tarq::test {
namespace {

using nlohmann::ordered_json;
using testing::ElementsAre;

struct FlowCase : RandomFlow {
  using RandomFlow::RandomFlow;
  static constexpr size_t kGpbSizes[] = {72, 297}, kJsonSizes[] = {388, 684};
  static constexpr char kNullGpb[] = "[TARQ_FLOW_GPB_EncodeMsg] Param error, msg is NULL.";
  static constexpr char kNullJson[] = "[FLOW_JSON_CheckEncodePara] Param error, msg is NULL.";
  static constexpr int kNullLines[] = {319, 45};
  std::vector<int> WireOrder() const {
    return {2, 1, 1, 2, 12, 32, 14, 25, 3, 4, 5, 6, 7, 10, 8, 9, 22, 11, 13, 33, 15, 16, 17, 18, 19};
  }
  const google::protobuf::Message& Decoded(const Tarq& t) const {
    return t.flow_statistics().flow_statistic(t.flow_statistics().flow_statistic_size() - 1);
  }
  bool InGpb(const std::string&) const { return true; }
};

struct FlowHopCase : RandomFlowHop {
  using RandomFlowHop::RandomFlowHop;
  static constexpr size_t kGpbSizes[] = {30, 169}, kJsonSizes[] = {262, 465};
  static constexpr char kNullGpb[] = "[TARQ_FLOWHOP_GPB_EncodeMsg] Param error, msg is NULL.";
  static constexpr char kNullJson[] = "[FLOW_JSON_CheckEncodePara] Param error, msg is NULL.";
  static constexpr int kNullLines[] = {221, 36};
  std::vector<int> WireOrder() const {
    std::vector<int> order = {3, 1, 1, 2, 3, 22, 13, 4, 23, 5, 6, 7, 8, 9};
    if (HasSdwan(entry)) order.insert(order.end(), {24, 25, 26});
    return order;
  }
  const google::protobuf::Message& Decoded(const Tarq& t) const {
    return t.flow_hop_statistics().flow_hop_statistic(t.flow_hop_statistics().flow_hop_statistic_size() - 1);
  }
  bool InGpb(const std::string& key) const { return !key.starts_with("sdwan") || HasSdwan(entry); }
};

struct NativeIpCase : RandomNativeIp {
  using RandomNativeIp::RandomNativeIp;
  static constexpr size_t kGpbSizes[] = {69, 185}, kJsonSizes[] = {0, 601};
  static constexpr char kNullGpb[] = "[NTVTARQ_GPB_EncodeMsg] Param error, msg is NULL.";
  static constexpr char kNullJson[] = "[NTVTARQ_JSON_CheckEncodePara] Param error, msg is NULL.";
  static constexpr int kNullLines[] = {0, 0};
  std::vector<int> WireOrder() const {
    std::vector<int> order = {8, 1, 1, 3, 5, 6, 7};
    if (entry.clientMac) order.push_back(23);
    order.insert(order.end(), {10, 11, 12, 8, 9});
    if (entry.appName) order.insert(order.end(), {16, 17});
    order.insert(order.end(), {21, 13, 14, 25, 26, 18, 19, 20, 27, 28, 29});
    return order;
  }
  const google::protobuf::Message& Decoded(const Tarq& t) const {
    return t.flow_native_ip_statistics().flow_native_ip_statistic(
        t.flow_native_ip_statistics().flow_native_ip_statistic_size() - 1);
  }
  bool InGpb(const std::string&) const { return true; }
};

/// Field numbers as they stand on the wire, the two wrappings first.
std::vector<int> FieldsOf(const std::string& fragment) {
  google::protobuf::io::CodedInputStream in(reinterpret_cast<const uint8_t*>(fragment.data()),
                                            static_cast<int>(fragment.size()));
  std::vector<int> fields;
  uint32_t length = 0;
  uint64_t value = 0;
  while (const uint32_t tag = in.ReadTag()) {
    fields.push_back(static_cast<int>(tag >> 3));
    const bool read = (tag & 7) == 0 ? in.ReadVarint64(&value) : in.ReadVarint32(&length);
    EXPECT_TRUE(read && ((tag & 7) == 0 || (tag & 7) == 2));
    EXPECT_TRUE((tag & 7) == 0 || fields.size() <= 2 || in.Skip(static_cast<int>(length)));
  }
  EXPECT_TRUE(in.ConsumedEntireMessage());
  return fields;
}

/// A decoded entry's fields by JSON key; every field present when the schema can tell, else by its value.
ordered_json ValueOf(const google::protobuf::Message& message, const std::string& key) {
  std::string name = key;
  std::replace(name.begin(), name.end(), '-', '_');
  const auto* field = message.GetDescriptor()->FindFieldByName(name);
  if (field == nullptr) return "no such field";
  const auto* reflection = message.GetReflection();
  switch (field->cpp_type()) {
    case google::protobuf::FieldDescriptor::CPPTYPE_UINT64:
      return reflection->GetUInt64(message, field);
    case google::protobuf::FieldDescriptor::CPPTYPE_UINT32:
      return reflection->GetUInt32(message, field);
    default:
      return reflection->GetString(message, field);
  }
}

template <class Case>
class Encoders : public ModuleTest {
 protected:
  void SetUp() override { ASSERT_EQ(SAVRO_TARQ_InitTlmFrmVtbl(), 0u); }
  std::string Gpb(const Case& c) {
    std::string out(4096, '\0');
    out.resize(std::max(0, Case::kGpb(&c.entry, reinterpret_cast<uint8_t*>(out.data()), 4096)));
    return out;
  }
  std::string Json(const Case& c) {
    std::string out(4096, '\0');
    out.resize(std::max(0, Case::kJson(&c.entry, out.data(), 4096)));
    return out;
  }
};
using Cases = testing::Types<NativeIpCase, FlowCase, FlowHopCase>;
TYPED_TEST_SUITE(Encoders, Cases);

TYPED_TEST(Encoders, RandomAndExtremeRecordsReadBackTheSameFromBothEncodings) {
  std::string sample;
  for (uint32_t how = 0; how < 2000; ++how) {
    const TypeParam c(how);
    const ordered_json expected = Expected(c.entry);
    const std::string json = this->Json(c);
    ASSERT_TRUE(json.starts_with("{") && json.ends_with("},"));
    const ordered_json parsed = ordered_json::parse(json.substr(0, json.size() - 1));
    ASSERT_EQ(parsed.dump(), expected.dump()) << "members, values and order";
    ASSERT_EQ(parsed.dump() + ",", json) << "no blanks, no other spelling";

    const std::string gpb = this->Gpb(c);
    ASSERT_EQ(FieldsOf(gpb), c.WireOrder());
    sample += gpb;
    Tarq decoded;
    ASSERT_TRUE(decoded.ParseFromString(gpb));
    const auto& entry = c.Decoded(decoded);
    EXPECT_TRUE(entry.GetReflection()->GetUnknownFields(entry).empty());
    for (const auto& [key, value] : expected.items()) {
      ASSERT_EQ(ValueOf(entry, key), c.InGpb(key) ? value : ordered_json(0u)) << key;
    }
    EXPECT_TRUE(decoded.flow_native_ip_statistics().flow_native_ip_statistic_size() == 0 ||
                decoded.flow_native_ip_statistics().flow_native_ip_statistic(0).rule_id() == 0);
  }
  Tarq decoded;
  ASSERT_TRUE(decoded.ParseFromString(sample));
  EXPECT_EQ(decoded.flow_statistics().flow_statistic_size() + decoded.flow_hop_statistics().flow_hop_statistic_size() +
                decoded.flow_native_ip_statistics().flow_native_ip_statistic_size(),
            2000)
      << "fragments back to back are one message";
}

TYPED_TEST(Encoders, SizesOfTheSmallestAndTheLargestRecord) {
  for (const uint32_t how : {0u, 1u}) {
    EXPECT_EQ(this->Gpb(TypeParam(how)).size(), TypeParam::kGpbSizes[how]) << (how ? "largest" : "smallest");
    EXPECT_TRUE(TypeParam::kJsonSizes[how] == 0 || this->Json(TypeParam(how)).size() == TypeParam::kJsonSizes[how]);
  }
}

TYPED_TEST(Encoders, RoomIsRespectedToTheByte) {
  for (const uint32_t how : {0u, 1u, 5u}) {
    const TypeParam c(how);
    const std::string whole = this->Gpb(c);
    for (uint32_t room = 0; room <= whole.size(); ++room) {
      std::unique_ptr<uint8_t[]> out(new uint8_t[room]);  // of that very size, for the sanitizer
      ASSERT_EQ(TypeParam::kGpb(&c.entry, out.get(), room), room < whole.size() ? -2 : static_cast<int32_t>(room));
    }
    std::unique_ptr<char[]> out(new char[TypeParam::kMinimumRoom]);
    EXPECT_EQ(TypeParam::kJson(&c.entry, out.get(), TypeParam::kMinimumRoom - 1), -2);
    EXPECT_EQ(TypeParam::kJson(&c.entry, out.get(), TypeParam::kMinimumRoom),
              static_cast<int32_t>(this->Json(c).size()));
    EXPECT_EQ(TypeParam::kJson(&c.entry, out.get(), 0x80000000u), static_cast<int32_t>(this->Json(c).size()))
        << "unsigned room";
    EXPECT_EQ(TypeParam::kGpb(&c.entry, reinterpret_cast<uint8_t*>(out.get()), 0x80000000u), -2) << "signed room";
  }
}

TYPED_TEST(Encoders, NullParametersAreRefused) {
  const TypeParam c(0);
  char out[2000];
  EXPECT_EQ(TypeParam::kGpb(nullptr, reinterpret_cast<uint8_t*>(out), 0), -1);
  EXPECT_EQ(TypeParam::kJson(nullptr, out, 0), -1) << "null comes before room";
  EXPECT_EQ(TypeParam::kJson(&c.entry, nullptr, 2000), -1);
  EXPECT_EQ(TypeParam::kGpb(&c.entry, nullptr, 2000), -2);
  EXPECT_THAT(this->platform.Texts(kLogFailure),
              ElementsAre(TypeParam::kNullGpb, TypeParam::kNullJson, TypeParam::kNullJson));
  const auto lineOf = [](const LogLine& line) { return std::stoi(line.text.substr(line.text.find(':') + 1)); };
  if (TypeParam::kNullLines[0] == 0) return;  // any
  EXPECT_EQ(lineOf(this->platform.log[0]), TypeParam::kNullLines[0]);
  EXPECT_EQ(lineOf(this->platform.log[1]), TypeParam::kNullLines[1]);
}

TEST_F(ModuleTest, UnknownFamiliesAndNativeIpLimits) {
  FlowCase flow(0);
  flow.entry.addressFamily = 2;
  char out[4096];
  EXPECT_EQ(SAVRO_TARQ_FLOW_GPB_EncodeMsg(&flow.entry, reinterpret_cast<uint8_t*>(out), 4096), -1);
  EXPECT_EQ(SAVRO_TARQ_FLOW_JSON_EncodeMsg(&flow.entry, out, 4096), -1);

  NativeIpCase native(1);
  const struct {
    size_t ifName;
    int32_t gpb;
  } kNames[] = {{841, 1 + 2 + 1024}, {842, -2}};
  for (const auto& name : kNames) {
    const std::string ifName(name.ifName, 'n');
    native.entry.ifName = ifName.c_str();
    EXPECT_EQ(SAVRO_NTVTARQ_GPB_EncodeMsg(&native.entry, reinterpret_cast<uint8_t*>(out), 4096), name.gpb);
    EXPECT_EQ(SAVRO_NTVTARQ_JSON_EncodeMsg(&native.entry, out, 1000), -1) << "a group that does not fit";
  }
  native.entry.ifName = nullptr;
  EXPECT_EQ(SAVRO_NTVTARQ_GPB_EncodeMsg(&native.entry, reinterpret_cast<uint8_t*>(out), 4096), -1);
  EXPECT_EQ(SAVRO_NTVTARQ_JSON_EncodeMsg(&native.entry, out, 4096), -1);
  const uint32_t kDirections[5][4] = {{0, 0, 0, 0}, {0, 1, 7, 0}, {0, 8, 4, 0}, {0, 2, 3, 0}, {0, 0, 0, 0}};
  for (uint32_t kind = 0; kind < 5; ++kind) {
    for (uint32_t raw = 0; raw < 4; ++raw)
      EXPECT_EQ(SAVRO_NTVTARQ_ENCODE_GetDirection(raw, kind), kDirections[kind][raw]);
  }
  EXPECT_EQ(strlen(SAVRO_NTVTARQ_STATS_JSON_TEMPLATE), 344u);
  EXPECT_EQ(strlen(SAVRO_TARQ_FLOW_STATS_JSON_TEMPLATE), 406u);
  EXPECT_EQ(strlen(SAVRO_TARQ_FLOWHOP_STATS_JSON_TEMPLATE), 283u);
}

std::vector<int> Bytes(const uint8_t* out, int32_t n) { return std::vector<int>(out, out + std::max(n, 0)); }

TEST_F(ModuleTest, GpbPrimitivesToTheByteAndTheirFailuresToTheLine) {
  ASSERT_EQ(SAVRO_TARQ_InitTlmFrmVtbl(), 0u);
  uint8_t out[64];
  const struct {
    uint64_t value;
    std::vector<int> bytes;
  } kVarints[] = {{0, {0}},
                  {127, {0x7F}},
                  {128, {0x80, 1}},
                  {16383, {0xFF, 0x7F}},
                  {16384, {0x80, 0x80, 1}},
                  {~0ull, {255, 255, 255, 255, 255, 255, 255, 255, 255, 1}}};
  for (const auto& c : kVarints) EXPECT_EQ(Bytes(out, SAVRO_TARQ_GPB_EncodeVarint(c.value, out, 64)), c.bytes);
  EXPECT_THAT(Bytes(out, SAVRO_TARQ_GPB_EncodeInterger(1, 150, out, 64)), ElementsAre(0x08, 0x96, 0x01));
  EXPECT_THAT(Bytes(out, SAVRO_TARQ_GPB_EncodeString(32, "ab", out, 64)), ElementsAre(0x82, 0x02, 0x02, 0x61, 0x62));
  EXPECT_THAT(Bytes(out, SAVRO_TARQ_GPB_EncodeString(11, "", out, 2)), ElementsAre(0x5A, 0))
      << "nothing copied into no room";
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeVarint(1, nullptr, 64), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeVarint(1, out, 0), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeVarint(1, out, 0x80000000), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeLengthDelimited(1, "abc", 3, out, 4), -2);
  EXPECT_TRUE(platform.log.empty());
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeVarint(1 << 14, out, 2), -2);
  EXPECT_THAT(Bytes(out, 2), ElementsAre(0x80, 0x80)) << "what fitted stays, uncounted";

  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeInterger(16, 1, out, 1), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeInterger(15, 1ull << 32 | 300, out, 2), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeString(16, "x", out, 1), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeString(16, "x", out, 2), -2);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeString(16, "x", out, 3), -2);
  platform.Fail("memcpy_s");
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeLengthDelimited(16, "x", 1, out, 9), -1);
  EXPECT_EQ(SAVRO_TARQ_GPB_EncodeString(1, nullptr, out, 9), -1);
  std::vector<std::string> texts;
  for (const LogLine& line : platform.log) texts.push_back(std::to_string(line.level) + line.text);
  EXPECT_THAT(
      texts,
      ElementsAre(
          "2[to.do:43][TARQ_GPB_EncodeKey] Encode varint failed, fieldId: 16, wtiteType: 0, retLen: -2.",
          "2[to.do:108][TARQ_GPB_EncodeInterge] Encode field type failed, fieldId: 16, val: 1",
          "2[to.do:115][TARQ_GPB_EncodeInterge] Encode val failed, fieldId: 15, val: 300",
          "2[to.do:43][TARQ_GPB_EncodeKey] Encode varint failed, fieldId: 16, wtiteType: 2, retLen: -2.",
          "2[to.do:58][TARQ_GPB_EncodeLengthDelimited] Encode field type failed, fieldId: 16.",
          "2[to.do:95][TARQ_GPB_EncodeString] Encode string length failed, fieldId: 16, strVal: x, buffLen: 1.",
          "2[to.do:67][TARQ_GPB_EncodeLengthDelimited] Encode string length failed, fieldId: 16, totalLen: 2, buffLen: 2.",
          "2[to.do:95][TARQ_GPB_EncodeString] Encode string length failed, fieldId: 16, strVal: x, buffLen: 2.",
          "2[to.do:95][TARQ_GPB_EncodeString] Encode string length failed, fieldId: 16, strVal: x, buffLen: 3.",
          "2[to.do:80][TARQ_GPB_EncodeLengthDelimited] Memery copy failed, fieldId: 16, totalLen: 3, buffLen: 9, leftBuffLen: 6.",
          "2[to.do:95][TARQ_GPB_EncodeString] Encode string length failed, fieldId: 1, strVal: , buffLen: 9."));
}

TEST_F(ModuleTest, AddressTextsAndTheirMinimumRooms) {
  char out[64];
  const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
  EXPECT_EQ(SAVRO_TARQ_ConvertMacAddrToStr(mac, out, 18), 0u);
  EXPECT_STREQ(out, "001A-2B3C-4D5E");
  EXPECT_EQ(SAVRO_TARQ_ConvertMacAddrToStr(mac, out, 17) + SAVRO_TARQ_ConvertMacAddrToStr(mac, nullptr, 18), 2u);
  for (const auto& [address, text] :
       {std::pair{0u, "0.0.0.0"}, {0xC0A80001u, "192.168.0.1"}, {~0u, "255.255.255.255"}}) {
    EXPECT_EQ(SAVRO_TARQ_ConvertIpv4AddrToStr(address, out, 32), 0u);
    EXPECT_STREQ(out, text);
  }
  EXPECT_EQ(SAVRO_TARQ_ConvertIpv4AddrToStr(0, out, 31) + SAVRO_TARQ_ConvertIpv4AddrToStr(0, nullptr, 32), 2u);
  const uint32_t kIpv6[][4] = {{0x20010DB8, 0, 0, 1}, {~0u, ~0u, ~0u, ~0u}};
  for (const auto& words : kIpv6) {
    EXPECT_EQ(SAVRO_TARQ_ConvertIpv6AddrToStr(words, out, 40), 0u);
    EXPECT_STREQ(out, words[3] == 1 ? "2001:db8:0:0:0:0:0:1" : "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    EXPECT_EQ(SAVRO_TARQ_ConvertIpv6AddrToStr(words, out, 39) + SAVRO_TARQ_ConvertIpv6AddrToStr(words, nullptr, 40),
              2u);
  }
}

}  // namespace
}  // namespace tarq::test
