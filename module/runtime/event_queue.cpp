#include "runtime/event_queue.h"

#include <atomic>
#include <iterator>

#include "frame/buffers.h"
#include "frame/log.h"
#include "intake/collection_cycle.h"
#include "runtime/queue_monitor.h"
#include "tasks/task_registry.h"

namespace tarq {
namespace {

constexpr uint32_t kDepth = 1024;

struct {
  std::atomic<void*> queue{nullptr};  ///< stored once the queue is fully registered; any thread pushes
} g_events;

using EventHandler = uint32_t (*)(const void* payload, uint32_t length);

/// Indexed by event type.
constexpr EventHandler g_tarqEventHandlerTable[] = {
    SAVRO_TARQ_STATS_UploadStatsData,
    SAVRO_TARQ_TASK_AddTlmTaskToList,
    SAVRO_TARQ_TASK_DelTlmTaskFromList,
};

}  // namespace

uint32_t SAVRO_TARQ_EVENT_Init() {
  void* queue = WUX_QUE_CreateNew("SAVRO_TARQ_EVENT", kQueueKind, kDepth, sizeof(EventRecord*));
  if (queue == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d]Create que failed !");
    return 1;
  }
  uint32_t ret = WUX_QUE_EpollReg(queue, SAVRO_TARQ_THREAD_GetEpollId(), SAVRO_TARQ_EVENT_Pop);
  if (ret != 0) {
    WUX_QUE_Destory(queue);
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_EVENT_Init] EpollReg failed, ret: %u.", ret);
    return ret;
  }
  const QueueMonitor monitor = MonitorOfDepth(kDepth);
  ret = WUX_QUE_MonitorReg(queue, &monitor, SAVRO_TARQ_EVENT_FlowCtrlProc);
  if (ret != 0) {
    WUX_QUE_Destory(queue);
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_EVENT_Init] Flow ctrl reg failed, ret: %u.", ret);
    return ret;
  }
  g_events.queue = queue;
  TARQ_LOG(kLogMilestone, "[%s:%d][TARQ_EVENT_Init] success.");
  return 0;
}

uint32_t SAVRO_TARQ_EVENT_Push(EventRecord* record) {
  // Sample paths are registered before the queue exists: a push that early hands over a null queue and is refused.
  const int32_t written = WUX_QUE_AsyWrite(g_events.queue, &record, 1);
  if (written == 1) return 0;
  TARQ_LOG(kLogFailure, "[%s:%d][TARQ_EVENT_Push] Write queue fail. eleCnt: %d.", written);
  return 1;
}

uint32_t SAVRO_TARQ_EVENT_Pop(void* queue) {
  EventRecord* record = nullptr;
  if (WUX_QUE_AsyRead(queue, &record, 1) < 1 || record == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_EVENT_Pop] Queue no data.");
    return 0;
  }
  if (record->msgType >= std::size(g_tarqEventHandlerTable) || record->msgLen == 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_EVENT_Pop] Msg info error, msgType: %u.", record->msgType);
    SAVRO_TARQ_BufFree(record);
    return 0;
  }
  const uint32_t ret = g_tarqEventHandlerTable[record->msgType](record->data(), record->msgLen);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_EVENT_Pop] Msg proc failed, ret: %u, msgType: %u.", ret, record->msgType);
  }
  SAVRO_TARQ_BufFree(record);
  return 0;
}

uint32_t SAVRO_TARQ_EVENT_FlowCtrlProc(uint32_t event) {
  switch (event) {
    case 0:
      TARQ_LOG(kLogNote, "[%s:%d][TARQ_EVENT_FlowCtrlProc] Flow ctrl start.");
      return 0;
    case 1:
      TARQ_LOG(kLogNote, "[%s:%d][TARQ_EVENT_FlowCtrlProc] Flow ctrl stop.");
      return 0;
    default:
      TARQ_LOG(kLogNote, "[%s:%d][TARQ_EVENT_FlowCtrlProc] Illigal evt, evt: %u.", event);
      return 1;
  }
}

uint32_t SAVRO_TARQ_EVENT_Destroy() {
  void* queue = g_events.queue.exchange(nullptr);
  return queue == nullptr ? 0 : WUX_QUE_Destory(queue);
}

}  // namespace tarq
