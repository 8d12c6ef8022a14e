// The native IP record as GPB: each step lists fields of one flat list entry, in wire order.
#include "encode/gpb_fragment.h"
#include "encode/native_ip_direction.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kLargestBody = 182 + UncheckedGpb::kLongestTexts;
constexpr GpbFragment kFragment = {.container = 8, .largestBody = kLargestBody, .usualHeader = 6};

GpbScratch g_scratch;

constexpr auto kIp = [](auto& run, const NativeIpEntry& entry) {
  run.Ipv4(1, entry.sourceIp);
  run.Ipv4(3, entry.destinationIp);
};

constexpr auto kProtocol = [](auto& run, const NativeIpEntry& entry) {
  run.Integer(5, entry.sourcePort);
  run.Integer(6, entry.destinationPort);
  run.Integer(7, entry.protocol);
};

constexpr auto kFlowFeatures = [](auto& run, const NativeIpEntry& entry) {
  kIp(run, entry);
  kProtocol(run, entry);
  if (entry.clientMac != nullptr) run.Mac(23, entry.clientMac);
};

constexpr auto kFlowRule = [](auto& run, const NativeIpEntry& entry) {
  run.Integer(10, uint8_t{0});
  run.Integer(11, entry.interval);
  run.Integer(12, entry.periodId);
};

constexpr auto kFlowInft = [](auto& run, const NativeIpEntry& entry) {
  run.Text(8, entry.ifName);
  run.Integer(9, SAVRO_NTVTARQ_ENCODE_GetDirection(entry.rawDirection, entry.directionKind));
};

constexpr auto kFlowInfo = [](auto& run, const NativeIpEntry& entry) {
  kFlowFeatures(run, entry);
  kFlowRule(run, entry);
  kFlowInft(run, entry);
};

constexpr auto kAppInfo = [](auto& run, const NativeIpEntry& entry) {
  if (entry.appName == nullptr) return;
  run.Integer(16, entry.appId);
  run.Text(17, entry.appName);
};

constexpr auto kDiscardMetrics = [](auto& run, const NativeIpEntry& entry) {
  run.Integer(18, entry.discardedPacketCount);
  run.Integer(19, entry.discardedByteCount);
  run.Integer(20, entry.discardReason);
};

constexpr auto kFlowStatsMetrics = [](auto& run, const NativeIpEntry& entry) {
  run.Integer(21, entry.startTime);
  run.Integer(13, entry.packetCount);
  run.Integer(14, entry.byteCount);
  run.Integer(25, entry.timestampSecond);
  run.Integer(26, entry.timestampNanosecond);
  kDiscardMetrics(run, entry);
};

constexpr auto kErrorInfo = [](auto& run, const NativeIpEntry& entry) {
  run.Integer(27, entry.errorInfo);
  run.Integer(28, entry.errorInfoExt);
};

constexpr auto kEncapTypeInfo = [](auto& run, const NativeIpEntry& entry) { run.Integer(29, entry.encapType); };

constexpr auto kFlowNativeIpStatistic = [](auto& run, const NativeIpEntry& entry) {
  kFlowInfo(run, entry);
  kAppInfo(run, entry);
  kFlowStatsMetrics(run, entry);
  kErrorInfo(run, entry);
  kEncapTypeInfo(run, entry);
};

}  // namespace

// clang-format off
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeIp                       (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kIp,                    entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeProtocol                 (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kProtocol,              entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowFeatures             (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowFeatures,          entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowRule                 (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowRule,              entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowInft                 (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowInft,              entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowInfo                 (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowInfo,              entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeAppInfo                  (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kAppInfo,               entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeDiscardMetrics           (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kDiscardMetrics,        entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowStatsMetrics         (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowStatsMetrics,      entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeErrorInfo                (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kErrorInfo,             entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeEncapTypeInfo            (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kEncapTypeInfo,         entry, out, room); }
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowNativeIpStatisticMsg (const NativeIpEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowNativeIpStatistic, entry, out, room); }
// clang-format on

int32_t SAVRO_NTVTARQ_GPB_EncodeMsg(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  if (entry == nullptr || entry->ifName == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_GPB_EncodeMsg] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return EncodeGpbFragment(kFragment, kFlowNativeIpStatistic, g_scratch, entry, out, room);
}

}  // namespace tarq
