#include "tasks/task_registry.h"

#include "frame/buffers.h"
#include "frame/log.h"
#include "perf/report_perf.h"
#include "platform/message.h"
#include "runtime/collection_timer.h"
#include "tasks/task_callbacks.h"

namespace tarq {

ListHead g_ntvTarqTlmTaskListHead = {&g_ntvTarqTlmTaskListHead, &g_ntvTarqTlmTaskListHead};
ListHead g_tarqTlmFlowTaskListHead = {&g_tarqTlmFlowTaskListHead, &g_tarqTlmFlowTaskListHead};
ListHead g_tarqTlmFlowHopTaskListHead = {&g_tarqTlmFlowHopTaskListHead, &g_tarqTlmFlowHopTaskListHead};

const TlmTaskListMapEntry g_tarqTlmTaskListMap[3] = {
    {kNativeIpMsgId, &g_ntvTarqTlmTaskListHead,
     R"({"tarq":{"flow_native_ip_statistics":{"flow_native_ip_statistic":[)"},
    {kFlowMsgId, &g_tarqTlmFlowTaskListHead, R"({"tarq":{"flow_statistics":{"flow_statistic":[)"},
    {kFlowHopMsgId, &g_tarqTlmFlowHopTaskListHead, R"({"tarq":{"flow_hop_statistics":{"flow_hop_statistic":[)"},
};

namespace {

struct {
  bool started = false;  ///< accounting and timer run; never cleared
} g_registry;

const TlmTaskListMapEntry* EntryOf(uint32_t msgId) {
  for (const TlmTaskListMapEntry& entry : g_tarqTlmTaskListMap) {
    if (entry.msgId == msgId) return &entry;
  }
  return nullptr;
}

bool IsEmpty(const ListHead* head) { return head->next == head; }

// Newest first: every walk visits the front of the list first.
void InsertFront(ListHead* head, ListHead* link) {
  *link = {head->next, head};
  head->next->previous = link;
  head->next = link;
}

void Unlink(ListHead* link) {
  link->previous->next = link->next;
  link->next->previous = link->previous;
}

TaskRecord* Find(ListHead* head, uint32_t tlmId, uint32_t taskId) {
  for (ListHead* link = head->next; link != head; link = link->next) {
    TaskRecord* task = TaskOf(link);
    if (task->info.tlmId == tlmId && task->info.taskId == taskId) return task;
  }
  return nullptr;
}

/// Starts accounting and the collection timer once; false leaves neither, to be tried again.
bool Start() {
  if (g_registry.started) return true;
  if (SAVRO_TARQ_InitReportPerf() != 0) return false;
  if (SAVRO_TARQ_STATS_CreateTimer() != 0) {
    SAVRO_TARQ_DestoryReportPerf();
    return false;
  }
  g_registry.started = true;
  return true;
}

}  // namespace

uint32_t SAVRO_TARQ_TASK_AddTlmTaskToList(const void* payload, uint32_t length) {
  if (!Start()) return 1;
  if (payload == nullptr || length != sizeof(TaskEventPayload)) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_TASK_AddTlmTaskToList] Msg is NULL, msgLen: %u", length);
    return 1;
  }
  const auto* request = static_cast<const TaskEventPayload*>(payload);
  TlmTaskInfo* known = SAVRO_TARQ_GetTlmTaskInfo(request->msgId, request->tlmId, request->taskId);
  if (known != nullptr) {
    known->description = request->description;
    return 0;
  }
  ListHead* head = SAVRO_TARQ_TASK_GetTaskHead(request->msgId);
  if (head == nullptr) return 1;
  auto* task = static_cast<TaskRecord*>(SAVRO_TARQ_BufAlloc(sizeof(TaskRecord)));
  if (task == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_AdddTlmTask] Add telemetry task[%u] failed, alloc memery failed.",
             request->taskId);
    return 1;
  }
  task->info = {request->tlmId, request->taskId, SAVRO_TARQ_STATS_GetTimerSecondCnt(), request->description};
  InsertFront(head, &task->link);
  TARQ_LOG(kLogMilestone, "[%s:%d][NTVTARQ_AdddTlmTask] Add telemetry task[%u] success.", request->taskId);
  return 0;
}

uint32_t SAVRO_TARQ_TASK_DelTlmTaskFromList(const void* payload, uint32_t length) {
  if (payload == nullptr || length != sizeof(TaskEventPayload)) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_TASK_DelTlmTaskFromList] Msg is NULL, msgLen: %u", length);
    return 1;
  }
  const auto* request = static_cast<const TaskEventPayload*>(payload);
  ListHead* head = SAVRO_TARQ_TASK_GetTaskHead(request->msgId);
  if (head == nullptr) return 1;
  if (IsEmpty(head)) {
    TARQ_LOG(kLogNote, "[%s:%d][NTVTARQ_TASK_DelTlmTaskFromList] Telemetry task list is empty.");
    return 0;
  }
  TaskRecord* task = Find(head, request->tlmId, request->taskId);
  if (task == nullptr) return 0;
  Unlink(&task->link);
  SAVRO_TARQ_BufFree(task);
  TARQ_LOG(kLogMilestone, "[%s:%d][NTVTARQ_TASK_DelTlmTaskFromList] Delete telemetry task[%u] success.",
           request->taskId);
  if (IsEmpty(head)) SAVRO_TARQ_ClearReportPerfData();
  return 0;
}

ListHead* SAVRO_TARQ_TASK_GetTaskHead(uint32_t msgId) {
  const TlmTaskListMapEntry* entry = EntryOf(msgId);
  return entry == nullptr ? nullptr : entry->head;
}

const char* SAVRO_TARQ_TASK_GetJsonHeader(uint32_t msgId) {
  const TlmTaskListMapEntry* entry = EntryOf(msgId);
  return entry == nullptr ? nullptr : entry->jsonHeader;
}

uint32_t SAVRO_TARQ_TASK_HasTlmTask(uint32_t msgId) {
  const ListHead* head = SAVRO_TARQ_TASK_GetTaskHead(msgId);
  return head != nullptr && !IsEmpty(head) ? 1 : 0;
}

uint32_t SAVRO_TARQ_TASK_GetEncodeType(uint32_t msgId) {
  ListHead* head = SAVRO_TARQ_TASK_GetTaskHead(msgId);
  if (head == nullptr) return kGpbOnly;
  bool json = false;
  bool other = false;
  for (ListHead* link = head->next; link != head; link = link->next) {
    (TaskOf(link)->info.description.codeType == kCodeTypeJson ? json : other) = true;
  }
  if (!json) return kGpbOnly;
  return other ? kGpbAndJson : kJsonOnly;
}

TlmTaskInfo* SAVRO_TARQ_GetTlmTaskInfo(uint32_t msgId, uint32_t tlmId, uint32_t taskId) {
  ListHead* head = SAVRO_TARQ_TASK_GetTaskHead(msgId);
  if (head == nullptr) return nullptr;
  if (IsEmpty(head)) {
    TARQ_LOG(kLogNote, "[%s:%d][NTVTARQ_GetTlmTaskInfo] Telemetry task list is empty.");
    return nullptr;
  }
  TaskRecord* task = Find(head, tlmId, taskId);
  return task == nullptr ? nullptr : &task->info;
}

}  // namespace tarq
