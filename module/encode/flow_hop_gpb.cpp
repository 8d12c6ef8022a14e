// The flow-hop record as GPB: each step writes fields of one flat list entry, in wire order.
#include "encode/field_text.h"
#include "encode/gpb.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kFlowHopStatistics = 3;  // field of the top-level message
constexpr int kNullRecordLine = 221;        // part of the log text

GpbScratch g_scratch;

}  // namespace

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeFlowInfo(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(1, entry->flowId)
      .Integer(2, entry->direction)
      .Integer(3, entry->ifIndex)
      .Text(22, FieldText(entry->ifName).Text())
      .Integer(13, entry->measureMode)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeErrorInfo(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(4, entry->errorInfo).Integer(23, entry->errorInfoExt).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodePacketByteCnt(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(6, entry->packetCount).Integer(7, entry->byteCount).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeTimeStamp(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(8, entry->timestampSecond).Integer(9, entry->timestampNanosecond).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeStatistics(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Step(SAVRO_TARQ_FLOWHOP_GPB_EncodeErrorInfo, entry)
      .Integer(5, entry->periodId)
      .Step(SAVRO_TARQ_FLOWHOP_GPB_EncodePacketByteCnt, entry)
      .Step(SAVRO_TARQ_FLOWHOP_GPB_EncodeTimeStamp, entry)
      .Result();
}

/// 1 when the record's SD-WAN group is present, else 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOWHOP_IsSdwanInfoValid(const FlowHopEntry* entry) {
  return entry->sdwanFlag == 1 && entry->sdwanPeerSiteId != 0 && entry->sdwanSrcTnpId != 0 && entry->sdwanDstTnpId != 0;
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeSdwanInfo(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(24, entry->sdwanPeerSiteId)
      .Integer(25, entry->sdwanSrcTnpId)
      .Integer(26, entry->sdwanDstTnpId)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeData(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  GpbRun run(out, room);
  run.Step(SAVRO_TARQ_FLOWHOP_GPB_EncodeFlowInfo, entry).Step(SAVRO_TARQ_FLOWHOP_GPB_EncodeStatistics, entry);
  if (SAVRO_TARQ_FLOWHOP_IsSdwanInfoValid(entry) == 1) run.Step(SAVRO_TARQ_FLOWHOP_GPB_EncodeSdwanInfo, entry);
  return run.Result();
}

int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg(const FlowHopEntry* entry, uint8_t* out, uint32_t room) {
  if (entry == nullptr) {
    TARQ_LOG_AT(kNullRecordLine, kLogFailure, "[%s:%d][TARQ_FLOWHOP_GPB_EncodeMsg] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return EncodeGpbFragment(kFlowHopStatistics, SAVRO_TARQ_FLOWHOP_GPB_EncodeData, g_scratch, entry, out, room);
}

}  // namespace tarq
