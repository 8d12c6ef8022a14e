#include "intake/collection_cycle.h"

#include <sys/time.h>

#include "frame/buffers.h"
#include "frame/log.h"
#include "intake/channel_server.h"
#include "intake/sample_buffers.h"
#include "intake/stats_processing.h"
#include "perf/report_perf.h"
#include "platform/message.h"
#include "runtime/collection_timer.h"
#include "tasks/task_registry.h"
#include "tasks/task_upload.h"

namespace tarq {

StatsMapEntry g_savroStatsMap[3] = {
    {kNativeIpMsgId, kGpbOnly, g_savroNtvTarqSampleData, SAVRO_NTVTARQ_STATS_StatsMsgProc},
    {kFlowMsgId, kGpbOnly, g_savroTarqFlowSampleData, SAVRO_TARQ_FLOW_STATS_StatsMsgProc},
    {kFlowHopMsgId, kGpbOnly, g_savroTarqFlowHopSampleData, SAVRO_TARQ_FLOWHOP_STATS_StatsMsgProc},
};

namespace {

/// A cycle takes no further message once it has seen this many records; a message is never split.
constexpr uint32_t kRecordsPerCycle = 2000;

/// Makes the entry's buffer of that code type an empty one. False leaves null, to be tried again in the next cycle.
bool PrepareSampleBuffer(const StatsMapEntry& entry, CodeType codeType) {
  SampleBuffer*& buffer = entry.sampleData[codeType];
  if (buffer == nullptr) buffer = static_cast<SampleBuffer*>(SAVRO_TARQ_BufAlloc(sizeof(SampleBuffer)));
  if (buffer != nullptr && memset_s(buffer, sizeof(SampleBuffer), 0, sizeof(SampleBuffer)) == 0) return true;
  TARQ_LOG(kLogFailure, "[%s:%d][GetAndInitSampleDataBuff] Alloc buff failed, msgId: %u, codeType: %u", entry.msgId,
           codeType);
  SAVRO_TARQ_BufFree(buffer);
  buffer = nullptr;
  return false;
}

/// A kind that lacks a buffer sits the cycle out.
bool HasBuffers(const StatsMapEntry& entry) {
  return entry.sampleData[kCodeTypeGpb] != nullptr && entry.sampleData[kCodeTypeJson] != nullptr;
}

/// Number of records taken from the message.
uint32_t ProcessMessage(const StatsMapEntry& entry, const StatsMessage* message) {
  if (!HasBuffers(entry)) return 0;
  return entry.statsMsgProc(entry.kindEncodeType, message, entry.sampleData[kCodeTypeGpb],
                            entry.sampleData[kCodeTypeJson]);
}

void UploadBuffer(const StatsMapEntry& entry, CodeType codeType) {
  SAVRO_TARQ_TASK_UploadStatsData(entry.msgId, entry.sampleData[codeType], codeType);
}

}  // namespace

uint32_t SAVRO_TARQ_STATS_Init() {
  uint32_t ret = SAVRO_TARQ_STATS_QUE_Create();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_Init]  Create stats queue failed, ret: %u.", ret);
    return 1;
  }
  ret = SAVRO_TARQ_STATS_IPC_Init();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_Init]  Create stats ipc failed, ret: %u.", ret);
    return 1;
  }
  return 0;
}

void SAVRO_TARQ_STATS_Destory() {
  SAVRO_TARQ_STATS_IPC_Destroy();
  SAVRO_TARQ_STATS_QUE_Destroy();
}

uint32_t SAVRO_TARQ_STATS_UploadStatsData(const void* payload, uint32_t /*length*/) {
  SAVRO_TARQ_STATS_InitStatsMap();
  uint32_t recordCount = 0;
  while (StatsMessage* message = SAVRO_TARQ_STATS_QUE_Pop()) {
    if (SAVRO_TARQ_TASK_HasTlmTask(message->msgId) != 0) {
      const StatsMapEntry* entry = SAVRO_TARQ_STATS_GetStatsMap(message->msgId);
      if (entry == nullptr) {
        TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_UploadStatsData] GetStatsMap failed.");
        SAVRO_TARQ_BufFree(message);
        return 1;
      }
      recordCount += ProcessMessage(*entry, message);
    }
    SAVRO_TARQ_BufFree(message);
    if (recordCount < kRecordsPerCycle) continue;

    // The rest of the queue waits for a cycle of its own, behind the events that came meanwhile.
    const uint32_t ret = SAVRO_TARQ_STATS_PushStatsEventToQue(*static_cast<const uint32_t*>(payload));
    if (ret != 0) {
      TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_UploadStatsData] PushStatsEventToQue failed, ret: %u.", ret);
    }
    break;
  }
  SAVRO_TARQ_STATS_UploadRest();
  SAVRO_TARQ_UpdateReportPerfToDb();
  return 0;
}

uint64_t SAVRO_TARQ_STATS_GetTimestamps() {
  timeval now = {};
  if (gettimeofday(&now, nullptr) != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_GetTimestamps] Get collect timestamp failed");
    return 0;
  }
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

void SAVRO_TARQ_STATS_SetCollectTimestamp(SampleBuffer* gpb, SampleBuffer* json) {
  const uint64_t now = SAVRO_TARQ_STATS_GetTimestamps();
  if (gpb != nullptr) gpb->collectTimestamp = now;
  if (json != nullptr) json->collectTimestamp = now;
}

void SAVRO_TARQ_STATS_InitSampleBuffer(StatsMapEntry* entry) {
  if (PrepareSampleBuffer(*entry, kCodeTypeGpb)) PrepareSampleBuffer(*entry, kCodeTypeJson);
}

void SAVRO_TARQ_STATS_InitStatsMap() {
  for (StatsMapEntry& entry : g_savroStatsMap) {
    entry.kindEncodeType = SAVRO_TARQ_TASK_GetEncodeType(entry.msgId);
    SAVRO_TARQ_STATS_InitSampleBuffer(&entry);
    SAVRO_TARQ_STATS_SetCollectTimestamp(entry.sampleData[kCodeTypeGpb], entry.sampleData[kCodeTypeJson]);
  }
}

StatsMapEntry* SAVRO_TARQ_STATS_GetStatsMap(uint32_t msgId) {
  for (StatsMapEntry& entry : g_savroStatsMap) {
    if (entry.msgId == msgId) return &entry;
  }
  return nullptr;
}

void SAVRO_TARQ_STATS_UploadRest() {
  for (const StatsMapEntry& entry : g_savroStatsMap) {
    if (!HasBuffers(entry)) continue;
    if (WantsJson(entry.kindEncodeType)) UploadBuffer(entry, kCodeTypeJson);
    if (WantsGpb(entry.kindEncodeType)) UploadBuffer(entry, kCodeTypeGpb);
  }
}

}  // namespace tarq
