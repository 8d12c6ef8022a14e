// The flow-hop record as GPB: each step lists fields of one flat list entry, in wire order.
#include "encode/gpb_fragment.h"
#include "frame/log.h"

namespace tarq {

namespace {

constexpr GpbFragment kFragment = {.container = 3, .largestBody = 164, .usualHeader = 4};
constexpr int kNullRecordLine = 221;  // part of the log text

GpbScratch g_scratch;

constexpr auto kFlowInfo = [](auto& run, const FlowHopEntry& entry) {
  run.Integer(1, entry.flowId);
  run.Integer(2, entry.direction);
  run.Integer(3, entry.ifIndex);
  run.Field(22, entry.ifName);
  run.Integer(13, entry.measureMode);
};

constexpr auto kErrorInfo = [](auto& run, const FlowHopEntry& entry) {
  run.Integer(4, entry.errorInfo);
  run.Integer(23, entry.errorInfoExt);
};

constexpr auto kPacketByteCnt = [](auto& run, const FlowHopEntry& entry) {
  run.Integer(6, entry.packetCount);
  run.Integer(7, entry.byteCount);
};

constexpr auto kTimeStamp = [](auto& run, const FlowHopEntry& entry) {
  run.Integer(8, entry.timestampSecond);
  run.Integer(9, entry.timestampNanosecond);
};

constexpr auto kStatistics = [](auto& run, const FlowHopEntry& entry) {
  kErrorInfo(run, entry);
  run.Integer(5, entry.periodId);
  kPacketByteCnt(run, entry);
  kTimeStamp(run, entry);
};

/// Whether the record's SD-WAN group is present.
bool HasSdwanInfo(const FlowHopEntry& entry) {
  return entry.sdwanFlag == 1 && entry.sdwanPeerSiteId != 0 && entry.sdwanSrcTnpId != 0 && entry.sdwanDstTnpId != 0;
}

constexpr auto kSdwanInfo = [](auto& run, const FlowHopEntry& entry) {
  run.Integer(24, entry.sdwanPeerSiteId);
  run.Integer(25, entry.sdwanSrcTnpId);
  run.Integer(26, entry.sdwanDstTnpId);
};

constexpr auto kData = [](auto& run, const FlowHopEntry& entry) {
  kFlowInfo(run, entry);
  kStatistics(run, entry);
  if (HasSdwanInfo(entry)) kSdwanInfo(run, entry);
};

}  // namespace

/// 1 or 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOWHOP_IsSdwanInfoValid(const FlowHopEntry* entry) { return HasSdwanInfo(*entry); }

// clang-format off
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeFlowInfo     (const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowInfo,      entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeErrorInfo    (const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kErrorInfo,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodePacketByteCnt(const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kPacketByteCnt, entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeTimeStamp    (const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kTimeStamp,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeStatistics   (const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kStatistics,    entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeSdwanInfo    (const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kSdwanInfo,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeData         (const FlowHopEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kData,          entry, out, room); }
// clang-format on

int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  if (entry == nullptr) {
    TARQ_LOG_AT(kNullRecordLine, kLogFailure, "[%s:%d][TARQ_FLOWHOP_GPB_EncodeMsg] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return EncodeGpbFragment(kFragment, kData, g_scratch, entry, out, room);
}

}  // namespace tarq
