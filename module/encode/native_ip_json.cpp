// The native IP record as JSON: one object of four groups of members, the last two optional, each ending with a comma.
#include "encode/address_text.h"
#include "encode/json_run.h"
#include "encode/native_ip_direction.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kMinimumRoom = 961;

}  // namespace

const char* const SAVRO_NTVTARQ_STATS_JSON_TEMPLATE =
    R"("source-port":%u,"destination-port":%u,"protocol":%u,"if-name":"%s","direction":%u,"interval":%u,"period-id":%u,)"
    R"("packet-count":%llu,"byte-count":%llu,"timestamp-second":%u,"timestamp-nanosecond":%u,)"
    R"("discarded-packet-count":%llu,"discarded-byte-count":%llu,"discard-reason":%u,"start-time":%u,"error-info":%u,)"
    R"("error-info-ext":%u,"encap-type":%u,)";

/// 0 when a record can be started; -1 for a null record, interface name or output, which is logged; -2 when the room is
/// too small.
TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_CheckEncodePara(const NativeIpEntry* entry, const char* out, uint32_t room) {
  if (entry == nullptr || out == nullptr || entry->ifName == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_JSON_CheckEncodePara] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return room < kMinimumRoom ? kEncodeNoRoom : 0;
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeIp(const NativeIpEntry* entry, char* out, uint32_t room) {
  char source[kIpv4TextRoom];
  char destination[kIpv4TextRoom];
  if (SAVRO_TARQ_ConvertIpv4AddrToStr(entry->sourceIp, source, sizeof(source)) != 0) return kEncodeFailed;
  if (SAVRO_TARQ_ConvertIpv4AddrToStr(entry->destinationIp, destination, sizeof(destination)) != 0)
    return kEncodeFailed;
  return JsonRun(out, room).Format(R"("source-ip":"%s","destination-ip":"%s",)", source, destination).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeMac(const NativeIpEntry* entry, char* out, uint32_t room) {
  if (entry->clientMac == nullptr) return 0;
  char mac[kMacTextRoom];
  if (SAVRO_TARQ_ConvertMacAddrToStr(entry->clientMac, mac, sizeof(mac)) != 0) return kEncodeFailed;
  return JsonRun(out, room).Format(R"("client-mac":"%s",)", mac).Result();
}

TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeAppInfo(const NativeIpEntry* entry, char* out, uint32_t room) {
  if (entry->appName == nullptr) return 0;
  return JsonRun(out, room).Format(R"("app-id":%u,"app-name":"%s",)", entry->appId, entry->appName).Result();
}

int32_t SAVRO_NTVTARQ_JSON_EncodeMsg(const NativeIpEntry* entry, char* out, uint32_t room) {
  const int32_t ret = SAVRO_NTVTARQ_JSON_CheckEncodePara(entry, out, room);
  if (ret != 0) return ret;
  return JsonRun(out, room)
      .Text("{")
      .Step(SAVRO_NTVTARQ_JSON_EncodeIp, entry)
      .Format(SAVRO_NTVTARQ_STATS_JSON_TEMPLATE, entry->sourcePort, entry->destinationPort, entry->protocol,
              entry->ifName, SAVRO_NTVTARQ_ENCODE_GetDirection(entry->rawDirection, entry->directionKind),
              entry->interval, entry->periodId, entry->packetCount, entry->byteCount, entry->timestampSecond,
              entry->timestampNanosecond, entry->discardedPacketCount, entry->discardedByteCount, entry->discardReason,
              entry->startTime, entry->errorInfo, entry->errorInfoExt, entry->encapType)
      .Step(SAVRO_NTVTARQ_JSON_EncodeMac, entry)
      .Step(SAVRO_NTVTARQ_JSON_EncodeAppInfo, entry)
      .StepBack()
      .Text("},")
      .Result();
}

}  // namespace tarq
