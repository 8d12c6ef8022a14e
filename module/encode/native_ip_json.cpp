// The native IP record as JSON: one object of four groups of members, the last two optional, each ending with a comma.
#include "encode/json_run.h"
#include "encode/native_ip_direction.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kMinimumRoom = 961;
constexpr uint32_t kLargestFragment = 602 + UncheckedJson::kLongestTexts;
static_assert(kLargestFragment + kPutSlack <= kMinimumRoom, "long texts alone need a check");

constexpr char kIpTemplate[] = R"("source-ip":"%s","destination-ip":"%s",)";
constexpr char kTemplate[] =
    R"("source-port":%u,"destination-port":%u,"protocol":%u,"if-name":"%s","direction":%u,"interval":%u,"period-id":%u,)"
    R"("packet-count":%llu,"byte-count":%llu,"timestamp-second":%u,"timestamp-nanosecond":%u,)"
    R"("discarded-packet-count":%llu,"discarded-byte-count":%llu,"discard-reason":%u,"start-time":%u,"error-info":%u,)"
    R"("error-info-ext":%u,"encap-type":%u,)";
constexpr char kMacTemplate[] = R"("client-mac":"%s",)";
constexpr char kAppTemplate[] = R"("app-id":%u,"app-name":"%s",)";

constexpr auto kIp = [](auto& run, const NativeIpEntry& entry) {
  run.Format(JsonTemplate<kIpTemplate>(), Ipv4Value{entry.sourceIp}, Ipv4Value{entry.destinationIp});
};

constexpr auto kMac = [](auto& run, const NativeIpEntry& entry) {
  if (entry.clientMac != nullptr) run.Format(JsonTemplate<kMacTemplate>(), MacValue{entry.clientMac});
};

constexpr auto kAppInfo = [](auto& run, const NativeIpEntry& entry) {
  if (entry.appName != nullptr) run.Format(JsonTemplate<kAppTemplate>(), entry.appId, entry.appName);
};

constexpr auto kFragment = [](auto& run, const NativeIpEntry& entry) __attribute__((always_inline)) {
  run.Text("{");
  kIp(run, entry);
  run.Format(JsonTemplate<kTemplate>(), entry.sourcePort, entry.destinationPort, entry.protocol, entry.ifName,
             SAVRO_NTVTARQ_ENCODE_GetDirection(entry.rawDirection, entry.directionKind), entry.interval, entry.periodId,
             entry.packetCount, entry.byteCount, entry.timestampSecond, entry.timestampNanosecond,
             entry.discardedPacketCount, entry.discardedByteCount, entry.discardReason, entry.startTime,
             entry.errorInfo, entry.errorInfoExt, entry.encapType);
  kMac(run, entry);
  kAppInfo(run, entry);
  run.StepBack();
  run.Text("},");
};

template <class Members>
int32_t EncodeChecked(Members members, const NativeIpEntry* entry, char* out, uint32_t room) {
  CheckedJson run(out, room);
  members(run, *entry);
  return run.Result();
}

}  // namespace

const char* const SAVRO_NTVTARQ_STATS_JSON_TEMPLATE = kTemplate;

/// 0 when a record can be started; -1 for a null record, interface name or output, which is logged; -2 when the room is
/// too small.
TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_CheckEncodePara(const NativeIpEntry* entry, const char* out, uint32_t room) {
  if (entry == nullptr || out == nullptr || entry->ifName == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_JSON_CheckEncodePara] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return room < kMinimumRoom ? kEncodeNoRoom : 0;
}

// clang-format off
TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeIp     (const NativeIpEntry* entry, char* out, uint32_t room) { return EncodeChecked(kIp,      entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeMac    (const NativeIpEntry* entry, char* out, uint32_t room) { return EncodeChecked(kMac,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeAppInfo(const NativeIpEntry* entry, char* out, uint32_t room) { return EncodeChecked(kAppInfo, entry, out, room); }
// clang-format on

int32_t SAVRO_NTVTARQ_JSON_EncodeMsg(const NativeIpEntry* entry, char* out, uint32_t room) {
  const int32_t ret = SAVRO_NTVTARQ_JSON_CheckEncodePara(entry, out, room);
  if (ret != 0) return ret;
  UncheckedJson run(out);
  kFragment(run, *entry);
  return run.failed() ? EncodeChecked(kFragment, entry, out, room) : static_cast<int32_t>(run.end() - out);
}

}  // namespace tarq
