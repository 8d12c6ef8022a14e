#include "tasks/task_callbacks.h"

#include "frame/buffers.h"
#include "frame/log.h"
#include "platform/message.h"
#include "runtime/event_queue.h"

namespace tarq {
namespace {

struct TaskEvent {
  EventRecord header;
  TaskEventPayload payload;
};
static_assert(sizeof(TaskEvent) == 8 + 3480);

/// Returns an event without description, or null when there is no memory.
TaskEvent* NewTaskEvent(EventType type, uint32_t msgId, uint32_t tlmId, uint32_t taskId) {
  auto* event = static_cast<TaskEvent*>(SAVRO_TARQ_BufAlloc(sizeof(TaskEvent)));
  if (event == nullptr) return nullptr;
  event->header = {type, sizeof(TaskEventPayload)};
  event->payload.msgId = msgId;
  event->payload.tlmId = tlmId;
  event->payload.taskId = taskId;
  return event;
}

}  // namespace

uint32_t SAVRO_TARQ_AddTlmTask(uint32_t msgId, uint32_t tlmId, uint32_t taskId, const TaskDescription* description) {
  TaskEvent* event = description == nullptr ? nullptr : NewTaskEvent(SAVRO_TARQ_EVT_ADD_TASK, msgId, tlmId, taskId);
  if (event == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_AddTlmTask] Alloc memory failed.., taskId: %u.", taskId);
    return 1;
  }
  event->payload.description = *description;
  const uint32_t ret = SAVRO_TARQ_EVENT_Push(&event->header);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_AddTlmTask] push task to event queue failed, ret: %u, taskId: %u.", ret,
             taskId);
    SAVRO_TARQ_BufFree(event);
  }
  return 0;
}

uint32_t SAVRO_TARQ_DelTlmTask(uint32_t msgId, uint32_t tlmId, uint32_t taskId) {
  TaskEvent* event = NewTaskEvent(SAVRO_TARQ_EVT_DEL_TASK, msgId, tlmId, taskId);
  if (event == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_DelTlmTask] Alloc memory failed..");
    return 1;
  }
  const uint32_t ret = SAVRO_TARQ_EVENT_Push(&event->header);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_DelTlmTask] push task to event queue failed, ret: %u.", ret);
    SAVRO_TARQ_BufFree(event);
  }
  return 0;
}

// clang-format off
uint32_t SAVRO_NTVTARQ_AddTlmTask     (uint32_t tlmId, uint32_t taskId, const TaskDescription* d) { return SAVRO_TARQ_AddTlmTask(kNativeIpMsgId, tlmId, taskId, d); }
uint32_t SAVRO_TARQ_FLOW_AddTlmTask   (uint32_t tlmId, uint32_t taskId, const TaskDescription* d) { return SAVRO_TARQ_AddTlmTask(kFlowMsgId,     tlmId, taskId, d); }
uint32_t SAVRO_TARQ_FLOWHOP_AddTlmTask(uint32_t tlmId, uint32_t taskId, const TaskDescription* d) { return SAVRO_TARQ_AddTlmTask(kFlowHopMsgId,  tlmId, taskId, d); }
uint32_t SAVRO_NTVTARQ_DelTlmTask     (uint32_t tlmId, uint32_t taskId) { return SAVRO_TARQ_DelTlmTask(kNativeIpMsgId, tlmId, taskId); }
uint32_t SAVRO_TARQ_FLOW_DelTlmTask   (uint32_t tlmId, uint32_t taskId) { return SAVRO_TARQ_DelTlmTask(kFlowMsgId,     tlmId, taskId); }
uint32_t SAVRO_TARQ_FLOWHOP_DelTlmTask(uint32_t tlmId, uint32_t taskId) { return SAVRO_TARQ_DelTlmTask(kFlowHopMsgId,  tlmId, taskId); }
// clang-format on

}  // namespace tarq
