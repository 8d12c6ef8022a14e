// What the encoders write, stock parsers read back to the same record, and never is anything written outside its room.
// Input: record; for native IP MAC and texts, each ended by a backslash and a blank; at the end, which of these are
// null, room, kind.
#include <nlohmann/json.hpp>

#include "check.h"
#include "encode/encoders.h"
#include "frame/framework_binding.h"
#include "support/expected.h"
#include "tarq.pb.h"

namespace tarq::fuzz {

using google::protobuf::Message;
using nlohmann::json;

constexpr size_t kFittingTexts = 600;  // GPB takes any record whose texts come to no more

/// What the one record in a decoded sample says, members named as in JSON.
json Read(const Message& message) {
  json members;
  const auto* reflection = message.GetReflection();
  Check(reflection->GetUnknownFields(message).empty(), "the schema knows every field");
  for (int i = 0; i < message.GetDescriptor()->field_count(); ++i) {
    const auto* field = message.GetDescriptor()->field(i);
    const auto type = field->cpp_type();
    if (field->is_repeated()) return Read(reflection->GetRepeatedMessage(message, field, 0));
    if (field->has_presence() && !reflection->HasField(message, field)) continue;
    if (type == field->CPPTYPE_MESSAGE) return Read(reflection->GetMessage(message, field));
    members[field->json_name()] = type == field->CPPTYPE_STRING   ? json(reflection->GetString(message, field))
                                  : type == field->CPPTYPE_UINT64 ? json(reflection->GetUInt64(message, field))
                                                                  : json(reflection->GetUInt32(message, field));
  }
  members.erase("rule-id");  // not in JSON
  return members;
}

/// Whether a JSON text may hold `value` as it is.
bool IsPlain(const std::string& value) {
  return json(value).dump(-1, ' ', false, json::error_handler_t::ignore) == '"' + value + '"';
}

/// A record's members as GPB has them.
template <class Entry>
json InGpb(const Entry& entry, json members) {
  if constexpr (std::is_same_v<Entry, FlowHopEntry>) {
    if (!test::HasSdwan(entry)) {
      for (const char* name : {"sdwan-peer-site-id", "sdwan-src-tnp-id", "sdwan-dst-tnp-id"}) members[name] = 0;
    }
  }
  return members;
}

/// Encodes into ample room, then into exact ones: the fuzzer's, just enough, one less. Empty when it fails.
template <class Entry, class Byte>
std::string Encode(int32_t (*encode)(const Entry*, Byte*, uint32_t), const Entry& entry, uint32_t least,
                   uint32_t room) {
  static std::vector<Byte> ample(1 << 20);
  const int32_t length = encode(&entry, ample.data(), static_cast<uint32_t>(ample.size()));
  const std::string bytes(ample.begin(), ample.begin() + std::max(length, 0));
  const uint32_t need = std::max(least, static_cast<uint32_t>(bytes.size() + std::is_same_v<Byte, char>));
  for (const uint32_t exact : {room, need, need - 1}) {
    const std::unique_ptr<Byte[]> out(new Byte[exact]);
    const int32_t got = encode(&entry, out.get(), exact);
    Check(length > 0 && exact >= need ? got == length && !std::memcmp(out.get(), bytes.data(), bytes.size()) : got < 0,
          "room is respected");
  }
  return bytes;
}

/// The record can be encoded when `good`; its texts come to so many bytes.
template <auto kGpb, auto kJson, uint32_t kLeastRoom, class Entry>
void Try(const Entry& entry, bool good, size_t textLength, uint32_t room) {
  const std::string gpb = Encode(kGpb, entry, 1, room), text = Encode(kJson, entry, kLeastRoom, room);
  Check(text.empty() != good && (good || gpb.empty()), "only a good record is encoded");
  Check(!good || !gpb.empty() || textLength > kFittingTexts, "GPB takes every good record");
  if (!good) return;
  const json expected = test::Expected(entry);
  bool plain = true;
  for (const auto& member : expected) plain = plain && (!member.is_string() || IsPlain(member));
  if (plain) Check(json::parse(text.begin(), text.end() - 1) == expected, "JSON is the record's");
  if (gpb.empty()) return;
  Tarq sample;
  Check(sample.ParseFromString(gpb), "stock protobuf reads it");
  Check(Read(sample) == InGpb(entry, expected), "GPB is the record's");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const uint32_t ret = SAVRO_TARQ_InitTlmFrmVtbl();
  Check(ret == 0, "the framework table is there");
  FuzzedDataProvider input(data, size);
  const int kind = input.ConsumeIntegralInRange(0, 2);
  const auto room = input.ConsumeIntegral<uint16_t>();
  if (kind == 1) {
    FlowEntry e{};
    input.ConsumeData(&e, sizeof e);
    Try<SAVRO_TARQ_FLOW_GPB_EncodeMsg, SAVRO_TARQ_FLOW_JSON_EncodeMsg, 1197>(e, e.addressFamily <= 1, 0, room);
  } else if (kind == 2) {
    FlowHopEntry e{};
    input.ConsumeData(&e, sizeof e);
    Try<SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg, SAVRO_TARQ_FLOWHOP_JSON_EncodeMsg, 839>(e, true, 0, room);
  } else {
    NativeIpEntry e{};
    input.ConsumeData(&e, sizeof e);
    const auto nulls = input.ConsumeIntegral<uint8_t>();
    const auto mac = input.ConsumeBytes<uint8_t>(6);
    const std::string ifName = input.ConsumeRandomLengthString(), appName = input.ConsumeRandomLengthString();
    e.clientMac = nulls & 1 || mac.size() < 6 ? nullptr : mac.data();
    e.appName = nulls & 2 ? nullptr : appName.c_str();
    e.ifName = nulls & 4 ? nullptr : ifName.c_str();
    const size_t length = strlen(ifName.c_str()) + strlen(appName.c_str());
    Try<SAVRO_NTVTARQ_GPB_EncodeMsg, SAVRO_NTVTARQ_JSON_EncodeMsg, 961>(e, e.ifName, length, room);
  }
  return 0;
}

}  // namespace tarq::fuzz
