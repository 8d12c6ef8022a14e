#include "intake/stats_processing.h"

#include <type_traits>

#include "encode/encoders.h"
#include "frame/log.h"
#include "perf/report_perf.h"
#include "tasks/task_registry.h"
#include "tasks/task_upload.h"

namespace tarq {
namespace {

/// All that tells a kind from the others.
template <class EntryRecord>
struct Kind {
  using Entry = EntryRecord;
  uint32_t msgId;
  uint32_t (*unpack)(const void* payload, uint32_t length, StatisticsList* list);
  void (*free)(StatisticsList* list);
  uint32_t countWord;  ///< which word of the statistics list holds the entry count
  uint32_t arrayWord;  ///< and which the entry array's address
  int32_t (*encodeJson)(const Entry* entry, char* out, uint32_t room);
  int32_t (*encodeGpb)(const Entry* entry, uint8_t* out, uint32_t room);
};

constexpr Kind<NativeIpEntry> kNativeIp = {
    kNativeIpMsgId,
    ntvtarq_entry_list_savro__unpack,
    ntvtarq_entry_list_savro_free__unpacked,
    2,
    1,
    SAVRO_NTVTARQ_JSON_EncodeMsg,
    SAVRO_NTVTARQ_GPB_EncodeMsg,
};
constexpr Kind<FlowEntry> kFlow = {
    kFlowMsgId,
    tarq_flow_statistics_list_to_savro__unpack,
    tarq_flow_statistics_list_to_savro_free__unpacked,
    0,
    1,
    SAVRO_TARQ_FLOW_JSON_EncodeMsg,
    SAVRO_TARQ_FLOW_GPB_EncodeMsg,
};
constexpr Kind<FlowHopEntry> kFlowHop = {
    kFlowHopMsgId,
    tarq_flow_hop_statistics_list_to_savro__unpack,
    tarq_flow_hop_statistics_list_to_savro_free__unpacked,
    0,
    1,
    SAVRO_TARQ_FLOWHOP_JSON_EncodeMsg,
    SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg,
};

/// Number under which a record is accounted: the low 32 bits of its period id.
template <class Entry>
uint32_t PeriodOf(const Entry* entry) {
  return static_cast<uint32_t>(entry->periodId);
}

/// Encodes the record behind those already in `buffer`; the encoder's result.
template <const auto& kKind, class Entry>
int32_t EncodeAtEnd(const Entry* entry, SampleBuffer* buffer, uint32_t codeType) {
  uint8_t* out = buffer->data + buffer->dataLen;
  const uint32_t room = kSampleDataCapacity - buffer->dataLen;
  return codeType == kCodeTypeJson ? kKind.encodeJson(entry, reinterpret_cast<char*>(out), room)
                                   : kKind.encodeGpb(entry, out, room);
}

/// What is left for a record that was not encoded: an emptied buffer, when it did not fit. The encoder's last result.
template <const auto& kKind, class Entry>
[[gnu::noinline]] int32_t EncodeAgain(int32_t result, const Entry* entry, SampleBuffer* buffer, uint32_t codeType) {
  if (result == kEncodeNoRoom && buffer->dataLen != 0) {
    SAVRO_TARQ_TASK_UploadStatsData(kKind.msgId, buffer, codeType);
    buffer->recordCount = 0;
    buffer->dataLen = 0;
    result = EncodeAtEnd<kKind>(entry, buffer, codeType);
  }
  if (result <= 0) TARQ_LOG(kLogFailure, "[%s:%d][STATS_EncodeStatsData] Stats data encode failed, ret: %d.", result);
  return result;
}

/// Appends the record and calls `countOut` with its length, or drops it.
template <const auto& kKind, class Entry, class CountOut>
[[gnu::always_inline]] inline void AppendRecord(const Entry* entry, SampleBuffer* buffer, uint32_t codeType,
                                                CountOut countOut) {
  int32_t length = EncodeAtEnd<kKind>(entry, buffer, codeType);
  if (length <= 0) [[unlikely]]
    length = EncodeAgain<kKind>(length, entry, buffer, codeType);
  if (length <= 0) return;
  ++buffer->recordCount;
  buffer->dataLen += static_cast<uint32_t>(length);
  countOut(static_cast<uint32_t>(length));
}

template <const auto& kKind, class Entry, class CountOut>
[[gnu::always_inline]] inline void EncodeRecord(uint32_t kindEncodeType, const Entry* entry, SampleBuffer* json,
                                                SampleBuffer* gpb, CountOut countOut) {
  if (WantsJson(kindEncodeType)) AppendRecord<kKind>(entry, json, kCodeTypeJson, countOut);
  if (WantsGpb(kindEncodeType)) AppendRecord<kKind>(entry, gpb, kCodeTypeGpb, countOut);
}

/// Counts a record out that is not part of a message in hand.
template <class Entry>
auto CountOutOf(const Entry* entry) {
  return [entry](uint32_t length) { SAVRO_TARQ_UpdateReportPerfOutItemCnt(PeriodOf(entry), 1, length); };
}

template <const auto& kKind>
uint32_t ProcessMessage(uint32_t kindEncodeType, const StatsMessage* message, SampleBuffer* gpb, SampleBuffer* json) {
  using Entry = typename std::remove_cvref_t<decltype(kKind)>::Entry;
  StatisticsList list = {};
  kKind.unpack(message->payload(), message->msgLen, &list);
  const auto* entries = reinterpret_cast<const Entry*>(list.words[kKind.arrayWord]);
  const uint32_t count = entries == nullptr ? 0 : static_cast<uint32_t>(list.words[kKind.countWord]);
  MessagePerf perf;
  for (uint32_t i = 0; i < count; ++i) {
    const Entry* entry = &entries[i];
    perf.CountIn(PeriodOf(entry), sizeof(Entry));
    EncodeRecord<kKind>(kindEncodeType, entry, json, gpb, [&perf](uint32_t length) { perf.CountOut(length); });
  }
  kKind.free(&list);
  return count;
}

}  // namespace

// clang-format off
uint32_t SAVRO_NTVTARQ_STATS_StatsMsgProc     (uint32_t type, const StatsMessage* m, SampleBuffer* gpb, SampleBuffer* json) { return ProcessMessage<kNativeIp>(type, m, gpb, json); }
uint32_t SAVRO_TARQ_FLOW_STATS_StatsMsgProc   (uint32_t type, const StatsMessage* m, SampleBuffer* gpb, SampleBuffer* json) { return ProcessMessage<kFlow>    (type, m, gpb, json); }
uint32_t SAVRO_TARQ_FLOWHOP_STATS_StatsMsgProc(uint32_t type, const StatsMessage* m, SampleBuffer* gpb, SampleBuffer* json) { return ProcessMessage<kFlowHop> (type, m, gpb, json); }

void SAVRO_NTVTARQ_STATS_Encode     (uint32_t type, const NativeIpEntry* e, SampleBuffer* json, SampleBuffer* gpb) { EncodeRecord<kNativeIp>(type, e, json, gpb, CountOutOf(e)); }
void SAVRO_TARQ_FLOW_STATS_Encode   (uint32_t type, const FlowEntry*     e, SampleBuffer* json, SampleBuffer* gpb) { EncodeRecord<kFlow>    (type, e, json, gpb, CountOutOf(e)); }
void SAVRO_TARQ_FLOWHOP_STATS_Encode(uint32_t type, const FlowHopEntry*  e, SampleBuffer* json, SampleBuffer* gpb) { EncodeRecord<kFlowHop> (type, e, json, gpb, CountOutOf(e)); }

void SAVRO_NTVTARQ_STATS_EncodeStatsData     (const NativeIpEntry* e, SampleBuffer* buffer, uint32_t codeType) { AppendRecord<kNativeIp>(e, buffer, codeType, CountOutOf(e)); }
void SAVRO_TARQ_FLOW_STATS_EncodeStatsData   (const FlowEntry*     e, SampleBuffer* buffer, uint32_t codeType) { AppendRecord<kFlow>    (e, buffer, codeType, CountOutOf(e)); }
void SAVRO_TARQ_FLOWHOP_STATS_EncodeStatsData(const FlowHopEntry*  e, SampleBuffer* buffer, uint32_t codeType) { AppendRecord<kFlowHop> (e, buffer, codeType, CountOutOf(e)); }
// clang-format on

}  // namespace tarq
