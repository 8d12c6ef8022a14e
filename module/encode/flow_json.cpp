// The flow record as JSON: one object whose members come in the template's order.
#include "encode/json_run.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kMinimumRoom = 1197;
constexpr uint32_t kLargestFragment = 686;  // texts without terminators included
static_assert(kLargestFragment + kPutSlack <= kMinimumRoom, "no record needs a check");
constexpr int kNullParameterLine = 45;  // part of the log text

constexpr char kTemplate[] =
    R"("flow-id":%llu,"direction":%u,"address-family":%u,"source-ip":"%s","source-mask":%u,"destination-ip":"%s",)"
    R"("destination-mask":%u,"source-port":%u,"destination-port":%u,"protocol":%u,"vpn-name":"%s","if-index":%u,)"
    R"("if-name":"%s","error-info":%u,"error-info-ext":%u,"interval":%u,"period-id":%llu,"packet-count":%llu,)"
    R"("byte-count":%llu,"timestamp-second":%u,"timestamp-nanosecond":%u,"dscp":%u,"measure-mode":%u)";

}  // namespace

const char* const SAVRO_TARQ_FLOW_STATS_JSON_TEMPLATE = kTemplate;

/// Fill both texts, of 32 and 40 bytes, from a record's addresses; the first conversion's failure, else 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_JSON_EncodeIpv4(const FlowEntry* entry, char* source, char* destination) {
  const uint32_t ret = SAVRO_TARQ_ConvertIpv4AddrToStr(entry->source.words[0], source, kIpv4TextRoom);
  return ret != 0 ? ret : SAVRO_TARQ_ConvertIpv4AddrToStr(entry->destination.words[0], destination, kIpv4TextRoom);
}

TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_JSON_EncodeIpv6(const FlowEntry* entry, char* source, char* destination) {
  const uint32_t ret = SAVRO_TARQ_ConvertIpv6AddrToStr(entry->source.words, source, kIpv6TextRoom);
  return ret != 0 ? ret : SAVRO_TARQ_ConvertIpv6AddrToStr(entry->destination.words, destination, kIpv6TextRoom);
}

/// 0 when a record can be started; -1 for a null record or output, which is logged; -2 when the room is too small.
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_JSON_CheckEncodePara(const FlowEntry* entry, const char* out, uint32_t room) {
  if (entry == nullptr || out == nullptr) {
    TARQ_LOG_AT(kNullParameterLine, kLogFailure, "[%s:%d][FLOW_JSON_CheckEncodePara] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return room < kMinimumRoom ? kEncodeNoRoom : 0;
}

int32_t SAVRO_TARQ_FLOW_JSON_EncodeMsg(const FlowEntry* entry, char* out, uint32_t room) {
  const int32_t ret = SAVRO_TARQ_FLOW_JSON_CheckEncodePara(entry, out, room);
  if (ret != 0) return ret;
  UncheckedJson run(out);
  run.Text("{");
  if (entry->addressFamily > 1) return kEncodeFailed;
  const IpValue source{entry->addressFamily, entry->source}, destination{entry->addressFamily, entry->destination};
  run.Format(JsonTemplate<kTemplate>(), entry->flowId, entry->direction, entry->addressFamily, source,
             entry->sourceMask, destination, entry->destinationMask, entry->sourcePort, entry->destinationPort,
             entry->protocol, entry->vpnName, entry->ifIndex, entry->ifName, entry->errorInfo, entry->errorInfoExt,
             entry->interval, entry->periodId, entry->packetCount, entry->byteCount, entry->timestampSecond,
             entry->timestampNanosecond, entry->dscp, entry->measureMode);
  run.Text("},");
  return static_cast<int32_t>(run.end() - out);
}

}  // namespace tarq
