// The flow-hop record as JSON: one object whose members come in the template's order.
#include "encode/json_run.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kMinimumRoom = 839;
constexpr uint32_t kLargestFragment = 466;  // text without terminator included
static_assert(kLargestFragment + kPutSlack <= kMinimumRoom, "no record needs a check");
constexpr int kNullParameterLine = 36;  // part of the log text

constexpr char kTemplate[] =
    R"("flow-id":%llu,"direction":%u,"if-index":%u,"if-name":"%s","error-info":%u,"error-info-ext":%u,)"
    R"("period-id":%llu,"packet-count":%llu,"byte-count":%llu,"timestamp-second":%u,"timestamp-nanosecond":%u,)"
    R"("measure-mode":%u,"sdwan-peer-site-id":%u,"sdwan-src-tnp-id":%u,"sdwan-dst-tnp-id":%u)";

}  // namespace

const char* const SAVRO_TARQ_FLOWHOP_STATS_JSON_TEMPLATE = kTemplate;

/// 0 when a record can be started; -1 for a null record or output, logged under the flow kind's tag; -2 when the room
/// is too small.
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_JSON_CheckEncodePara(const FlowHopEntry* entry, const char* out, uint32_t room) {
  if (entry == nullptr || out == nullptr) {
    TARQ_LOG_AT(kNullParameterLine, kLogFailure, "[%s:%d][FLOW_JSON_CheckEncodePara] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return room < kMinimumRoom ? kEncodeNoRoom : 0;
}

int32_t SAVRO_TARQ_FLOWHOP_JSON_EncodeMsg(const FlowHopEntry* entry, char* out, uint32_t room) {
  const int32_t ret = SAVRO_TARQ_FLOWHOP_JSON_CheckEncodePara(entry, out, room);
  if (ret != 0) return ret;
  UncheckedJson run(out);
  run.Text("{");
  run.Format(JsonTemplate<kTemplate>(), entry->flowId, entry->direction, entry->ifIndex, entry->ifName,
             entry->errorInfo, entry->errorInfoExt, entry->periodId, entry->packetCount, entry->byteCount,
             entry->timestampSecond, entry->timestampNanosecond, entry->measureMode, entry->sdwanPeerSiteId,
             entry->sdwanSrcTnpId, entry->sdwanDstTnpId);
  run.Text("},");
  return static_cast<int32_t>(run.end() - out);
}

}  // namespace tarq
