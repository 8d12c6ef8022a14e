#include "runtime/stats_queue.h"

#include <atomic>

#include "frame/log.h"
#include "runtime/queue_monitor.h"

namespace tarq {
namespace {

constexpr uint32_t kDepth = 4096;

struct {
  std::atomic<void*> queue{nullptr};  ///< set and cleared on the framework's thread, used on the worker's
} g_stats;

}  // namespace

uint32_t SAVRO_TARQ_STATS_QUE_Create() {
  void* queue = WUX_QUE_CreateNew("SavroNtvTarqStatsQue", kQueueKind, kDepth, sizeof(StatsMessage*));
  g_stats.queue = queue;
  if (queue == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_QUE_Create] Create que failed !");
    return 1;
  }
  const QueueMonitor monitor = MonitorOfDepth(kDepth);
  const uint32_t ret = WUX_QUE_MonitorReg(queue, &monitor, SAVRO_TARQ_STATS_QUE_FlowCtrlProc);
  if (ret != 0) {
    SAVRO_TARQ_STATS_QUE_Destroy();
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_QUE_Create] Flow ctrl reg failed, ret: %u.", ret);
    return ret;
  }
  TARQ_LOG(kLogMilestone, "[%s:%d][NTVTARQ_STATS_QUE_Create] success.");
  return 0;
}

uint32_t SAVRO_TARQ_STATS_QUE_Push(StatsMessage* message) {
  void* queue = g_stats.queue;
  if (queue == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_QUE_Push] Handle is NULL.");
    return 1;
  }
  const int32_t written = WUX_QUE_AsyWrite(queue, &message, 1);
  if (written == 1) return 0;
  TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_QUE_Push] Write queue fail. eleCnt: %d, curr que element : %u.", written,
           WUX_QUE_GetElementNum(queue));
  return 1;
}

StatsMessage* SAVRO_TARQ_STATS_QUE_Pop() {
  void* queue = g_stats.queue;
  StatsMessage* message = nullptr;
  return queue != nullptr && WUX_QUE_AsyRead(queue, &message, 1) > 0 ? message : nullptr;
}

// Logs under the tag "TASK_QUE", which collectors of these lines know it by.
uint32_t SAVRO_TARQ_STATS_QUE_FlowCtrlProc(uint32_t event) {
  switch (event) {
    case 0:
      TARQ_LOG(kLogNote, "[%s:%d][TASK_QUE_FlowCtrlProc] Flow ctrl start.");
      return 0;
    case 1:
      TARQ_LOG(kLogNote, "[%s:%d][TASK_QUE_FlowCtrlProc] Flow ctrl stop.");
      return 0;
    default:
      TARQ_LOG(kLogNote, "[%s:%d][TASK_QUE_FlowCtrlProc] Illigal evt, evt: %u.", event);
      return 1;
  }
}

void SAVRO_TARQ_STATS_QUE_Destroy() {
  void* queue = g_stats.queue.exchange(nullptr);
  if (queue != nullptr) WUX_QUE_Destory(queue);
}

}  // namespace tarq
