// The flow record as GPB: each step writes fields of one flat list entry, in wire order.
#include "encode/field_text.h"
#include "encode/flow_address.h"
#include "encode/gpb.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kFlowStatistics = 2;  // field of the top-level message
constexpr int kNullRecordLine = 319;     // part of the log text

GpbScratch g_scratch;

}  // namespace

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeFlowInfo(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(1, entry->flowId)
      .Integer(2, entry->direction)
      .Integer(12, entry->ifIndex)
      .Text(32, FieldText(entry->ifName).Text())
      .Integer(14, entry->interval)
      .Integer(25, entry->measureMode)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeIpAddress(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  FlowAddresses addresses;
  if (!addresses.Fill(entry)) return kEncodeFailed;
  return GpbRun(out, room).Text(4, addresses.source).Text(5, addresses.destination).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeIpMask(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(6, entry->sourceMask).Integer(7, entry->destinationMask).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeProtocolPort(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(10, entry->protocol)
      .Integer(8, entry->sourcePort)
      .Integer(9, entry->destinationPort)
      .Integer(22, entry->dscp)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeTuple(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(3, entry->addressFamily)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeIpAddress, entry)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeIpMask, entry)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeProtocolPort, entry)
      .Text(11, FieldText(entry->vpnName).Text())
      .Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeErrorInfo(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(13, entry->errorInfo).Integer(33, entry->errorInfoExt).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodePacketByteCnt(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(16, entry->packetCount).Integer(17, entry->byteCount).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeTimeStamp(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(18, entry->timestampSecond).Integer(19, entry->timestampNanosecond).Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeStatistics(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeErrorInfo, entry)
      .Integer(15, entry->periodId)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodePacketByteCnt, entry)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeTimeStamp, entry)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeData(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeFlowInfo, entry)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeTuple, entry)
      .Step(SAVRO_TARQ_FLOW_GPB_EncodeStatistics, entry)
      .Result();
}

int32_t SAVRO_TARQ_FLOW_GPB_EncodeMsg(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  if (entry == nullptr) {
    TARQ_LOG_AT(kNullRecordLine, kLogFailure, "[%s:%d][TARQ_FLOW_GPB_EncodeMsg] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return EncodeGpbFragment(kFlowStatistics, SAVRO_TARQ_FLOW_GPB_EncodeData, g_scratch, entry, out, room);
}

}  // namespace tarq
