// The flow record as GPB: each step lists fields of one flat list entry, in wire order.
#include "encode/gpb_fragment.h"
#include "frame/log.h"

namespace tarq {
namespace {

constexpr GpbFragment kFragment = {.container = 2, .largestBody = 293, .usualHeader = 6};
constexpr int kNullRecordLine = 319;  // part of the log text

GpbScratch g_scratch;

constexpr auto kFlowInfo = [](auto& run, const FlowEntry& entry) {
  run.Integer(1, entry.flowId);
  run.Integer(2, entry.direction);
  run.Integer(12, entry.ifIndex);
  run.Field(32, entry.ifName);
  run.Integer(14, entry.interval);
  run.Integer(25, entry.measureMode);
};

constexpr auto kIpAddress = [](auto& run, const FlowEntry& entry) {
  switch (entry.addressFamily) {
    case 0:
      run.Ipv4(4, entry.source.words[0]);
      run.Ipv4(5, entry.destination.words[0]);
      break;
    case 1:
      run.Ipv6(4, entry.source.words);
      run.Ipv6(5, entry.destination.words);
      break;
    default:
      run.Fail();
  }
};

constexpr auto kIpMask = [](auto& run, const FlowEntry& entry) {
  run.Integer(6, entry.sourceMask);
  run.Integer(7, entry.destinationMask);
};

constexpr auto kProtocolPort = [](auto& run, const FlowEntry& entry) {
  run.Integer(10, entry.protocol);
  run.Integer(8, entry.sourcePort);
  run.Integer(9, entry.destinationPort);
  run.Integer(22, entry.dscp);
};

constexpr auto kTuple = [](auto& run, const FlowEntry& entry) {
  run.Integer(3, entry.addressFamily);
  kIpAddress(run, entry);
  kIpMask(run, entry);
  kProtocolPort(run, entry);
  run.Field(11, entry.vpnName);
};

constexpr auto kErrorInfo = [](auto& run, const FlowEntry& entry) {
  run.Integer(13, entry.errorInfo);
  run.Integer(33, entry.errorInfoExt);
};

constexpr auto kPacketByteCnt = [](auto& run, const FlowEntry& entry) {
  run.Integer(16, entry.packetCount);
  run.Integer(17, entry.byteCount);
};

constexpr auto kTimeStamp = [](auto& run, const FlowEntry& entry) {
  run.Integer(18, entry.timestampSecond);
  run.Integer(19, entry.timestampNanosecond);
};

constexpr auto kStatistics = [](auto& run, const FlowEntry& entry) {
  kErrorInfo(run, entry);
  run.Integer(15, entry.periodId);
  kPacketByteCnt(run, entry);
  kTimeStamp(run, entry);
};

constexpr auto kData = [](auto& run, const FlowEntry& entry) {
  kFlowInfo(run, entry);
  kTuple(run, entry);
  kStatistics(run, entry);
};

}  // namespace

// clang-format off
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeFlowInfo     (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kFlowInfo,      entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeIpAddress    (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kIpAddress,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeIpMask       (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kIpMask,        entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeProtocolPort (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kProtocolPort,  entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeTuple        (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kTuple,         entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeErrorInfo    (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kErrorInfo,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodePacketByteCnt(const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kPacketByteCnt, entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeTimeStamp    (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kTimeStamp,     entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeStatistics   (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kStatistics,    entry, out, room); }
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeData         (const FlowEntry* entry, uint8_t* out, uint32_t room) { return EncodeGpbFields(kData,          entry, out, room); }
// clang-format on

int32_t SAVRO_TARQ_FLOW_GPB_EncodeMsg(const FlowEntry* entry, uint8_t* out, uint32_t room) {
  if (entry == nullptr) {
    TARQ_LOG_AT(kNullRecordLine, kLogFailure, "[%s:%d][TARQ_FLOW_GPB_EncodeMsg] Param error, msg is NULL.");
    return kEncodeFailed;
  }
  return EncodeGpbFragment(kFragment, kData, g_scratch, entry, out, room);
}

}  // namespace tarq
