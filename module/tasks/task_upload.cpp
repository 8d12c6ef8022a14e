#include "tasks/task_upload.h"

#include <algorithm>
#include <iterator>

#include "frame/buffers.h"
#include "frame/framework_binding.h"
#include "frame/log.h"
#include "runtime/collection_timer.h"

namespace tarq {
namespace {

constexpr char kJsonClosing[] = "]}}}";

/// Writes `text` at the upload's fill position. False when it does not fit.
bool Append(SampleBuffer* upload, const char* text) {
  const int length = sprintf_s(reinterpret_cast<char*>(upload->data) + upload->dataLen,
                               kSampleDataCapacity - upload->dataLen, "%s", text);
  if (length < 0) return false;
  upload->dataLen += static_cast<uint32_t>(length);
  return true;
}

}  // namespace

void SAVRO_TARQ_TASK_UploadStatsData(uint32_t msgId, const SampleBuffer* sample, uint32_t codeType) {
  if (sample->dataLen == 0) return;
  ListHead* head = SAVRO_TARQ_TASK_GetTaskHead(msgId);
  if (head == nullptr) return;
  auto* upload = static_cast<SampleBuffer*>(SAVRO_TARQ_BufAlloc(sizeof(SampleBuffer)));
  if (upload == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_UploadDataToTlm] Alloc buff failed, codetype: %u.", codeType);
    return;
  }
  if (SAVRO_TARQ_TASK_FormatStatsData(msgId, codeType, sample, upload) != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_UploadDataToTlm] Format samlpeData failed, codetype: %u.", codeType);
    SAVRO_TARQ_BufFree(upload);
    return;
  }
  for (ListHead* link = head->next; link != head; link = link->next) {
    TlmTaskInfo* task = &TaskOf(link)->info;
    if (task->description.codeType == codeType) SAVRO_TARQ_TASK_UploadStatsDataByTask(upload, task);
  }
  SAVRO_TARQ_BufFree(upload);
}

uint32_t SAVRO_TARQ_TASK_FormatStatsData(uint32_t msgId, uint32_t codeType, const SampleBuffer* sample,
                                         SampleBuffer* upload) {
  upload->dataLen = 0;
  std::copy(std::begin(sample->reserved1), std::end(sample->reserved1), upload->reserved1);
  upload->collectTimestamp = sample->collectTimestamp;
  std::copy(std::begin(sample->reserved2), std::end(sample->reserved2), upload->reserved2);
  upload->isActiveReportEnd = sample->isActiveReportEnd;
  upload->recordCount = sample->recordCount;

  if (codeType == kCodeTypeJson) {
    const char* header = SAVRO_TARQ_TASK_GetJsonHeader(msgId);
    if (header == nullptr || !Append(upload, header)) return 1;
  }
  if (CopyBounded(upload->data + upload->dataLen, kSampleDataCapacity - upload->dataLen, sample->data,
                  sample->dataLen) != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_TASK_FormatStatsData] Copy samlpeData failed, codetype: %u.", codeType);
    return 1;
  }
  upload->dataLen += sample->dataLen;
  if (codeType != kCodeTypeJson) return 0;

  --upload->dataLen;  // the closing takes the place of the comma that ends the last record
  return Append(upload, kJsonClosing) ? 0 : 1;
}

void SAVRO_TARQ_TASK_UploadStatsDataByTask(SampleBuffer* upload, TlmTaskInfo* task) {
  upload->tlmId = task->tlmId;
  upload->taskId = task->taskId;
  upload->isActiveReportEnd = SAVRO_TARQ_TASK_IsActiveReportEnd(task);
  SAVRO_TARQ_UploadDataToTlm(upload);
}

uint32_t SAVRO_TARQ_TASK_IsActiveReportEnd(TlmTaskInfo* task) {
  const uint32_t now = SAVRO_TARQ_STATS_GetTimerSecondCnt();
  const uint32_t last = task->lastReportEndSecond;
  // Past the wrap of the count this is one second short of the time elapsed; collectors see flags at these seconds.
  const uint32_t elapsed = now >= last ? now - last : (0xFFFFFFFF - last) + now;
  if (elapsed < task->description.sampleIntervalMs / 1000) return 0;
  task->lastReportEndSecond = now;
  return 1;
}

void SAVRO_TARQ_UploadDataToTlm(const SampleBuffer* upload) {
  const uint32_t moduleId = SAVRO_TARQ_GetModuleId();
  const FrameworkTable* table = SAVRO_TARQ_GetTlmFrmVtbl();
  if (table == nullptr || table->SampleDataUpload == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_UploadDataToTlm] savroVtbl is NULL.");
    return;
  }
  const uint32_t ret = table->SampleDataUpload(moduleId, upload);
  if (ret != 0) TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_UploadDataToTlm] SampleDataUpload failed, ret: %u.", ret);
}

}  // namespace tarq
