// The native IP record as GPB: each step writes fields of one flat list entry, in wire order.
#include "encode/address_text.h"
#include "encode/gpb.h"
#include "encode/native_ip_direction.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kNativeIpStatistics = 8;  // field of the top-level message

GpbScratch g_scratch;

}  // namespace

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeIp(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  char source[kIpv4TextRoom];
  char destination[kIpv4TextRoom];
  if (SAVRO_TARQ_ConvertIpv4AddrToStr(entry->sourceIp, source, sizeof(source)) != 0) return kEncodeFailed;
  if (SAVRO_TARQ_ConvertIpv4AddrToStr(entry->destinationIp, destination, sizeof(destination)) != 0)
    return kEncodeFailed;
  return GpbRun(out, room).Text(1, source).Text(3, destination).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeProtocol(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(5, entry->sourcePort)
      .Integer(6, entry->destinationPort)
      .Integer(7, entry->protocol)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowFeatures(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  GpbRun run(out, room);
  run.Step(SAVRO_NTVTARQ_GPB_EncodeIp, entry).Step(SAVRO_NTVTARQ_GPB_EncodeProtocol, entry);
  if (entry->clientMac == nullptr) return run.Result();
  char mac[kMacTextRoom];
  if (SAVRO_TARQ_ConvertMacAddrToStr(entry->clientMac, mac, sizeof(mac)) != 0) return kEncodeFailed;
  return run.Text(23, mac).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowRule(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(10, 0).Integer(11, entry->interval).Integer(12, entry->periodId).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowInft(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Text(8, entry->ifName)
      .Integer(9, SAVRO_NTVTARQ_ENCODE_GetDirection(entry->rawDirection, entry->directionKind))
      .Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowInfo(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Step(SAVRO_NTVTARQ_GPB_EncodeFlowFeatures, entry)
      .Step(SAVRO_NTVTARQ_GPB_EncodeFlowRule, entry)
      .Step(SAVRO_NTVTARQ_GPB_EncodeFlowInft, entry)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeAppInfo(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  if (entry->appName == nullptr) return 0;
  return GpbRun(out, room).Integer(16, entry->appId).Text(17, entry->appName).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeDiscardMetrics(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(18, entry->discardedPacketCount)
      .Integer(19, entry->discardedByteCount)
      .Integer(20, entry->discardReason)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowStatsMetrics(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room)
      .Integer(21, entry->startTime)
      .Integer(13, entry->packetCount)
      .Integer(14, entry->byteCount)
      .Integer(25, entry->timestampSecond)
      .Integer(26, entry->timestampNanosecond)
      .Step(SAVRO_NTVTARQ_GPB_EncodeDiscardMetrics, entry)
      .Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeErrorInfo(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(27, entry->errorInfo).Integer(28, entry->errorInfoExt).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeEncapTypeInfo(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  return GpbRun(out, room).Integer(29, entry->encapType).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeFlowNativeIpStatisticMsg(const NativeIpEntry* entry, uint8_t* out,
                                                                     uint32_t room) {
  return GpbRun(out, room)
      .Step(SAVRO_NTVTARQ_GPB_EncodeFlowInfo, entry)
      .Step(SAVRO_NTVTARQ_GPB_EncodeAppInfo, entry)
      .Step(SAVRO_NTVTARQ_GPB_EncodeFlowStatsMetrics, entry)
      .Step(SAVRO_NTVTARQ_GPB_EncodeErrorInfo, entry)
      .Step(SAVRO_NTVTARQ_GPB_EncodeEncapTypeInfo, entry)
      .Result();
}

int32_t SAVRO_NTVTARQ_GPB_EncodeMsg(const NativeIpEntry* entry, uint8_t* out, uint32_t room) {
  if (entry == nullptr || entry->ifName == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_GPB_EncodeMsg] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return EncodeGpbFragment(kNativeIpStatistics, SAVRO_NTVTARQ_GPB_EncodeFlowNativeIpStatisticMsg, g_scratch, entry, out,
                           room);
}

}  // namespace tarq
