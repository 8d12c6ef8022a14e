// The telemetry tasks: one list per statistics kind. Everything here runs on the worker thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "export.h"
#include "platform/framework.h"

namespace tarq {

/// Link of a circular doubly linked list; a head that points at itself is an empty list.
struct ListHead {
  ListHead* next;
  ListHead* previous;
};

/// A task's identity and description.
struct TlmTaskInfo {
  uint32_t tlmId;  ///< with `taskId` the task's key within its kind
  uint32_t taskId;
  uint32_t
      lastReportEndSecond;      ///< timer second count of the task's addition, later of its last active-report-end flag
  TaskDescription description;  ///< as last given by the framework
};

/// One task: a buffer from `SAVRO_TARQ_BufAlloc`, owned by its kind's list.
struct TaskRecord {
  ListHead link;  ///< first, so that a link's address is its record's
  TlmTaskInfo info;
};
static_assert(offsetof(TaskRecord, link) == 0 && offsetof(TaskRecord, info) == 16);
static_assert(offsetof(TlmTaskInfo, description) == 12);

inline TaskRecord* TaskOf(ListHead* link) { return reinterpret_cast<TaskRecord*>(link); }

/// What belongs to a kind here.
struct TlmTaskListMapEntry {
  uint32_t msgId;
  ListHead* head;        ///< the kind's tasks, newest first
  char jsonHeader[128];  ///< opens the JSON document of the kind's samples
};

static_assert(sizeof(TlmTaskListMapEntry) == 144 && offsetof(TlmTaskListMapEntry, head) == 8);
static_assert(offsetof(TlmTaskListMapEntry, jsonHeader) == 16);

TARQ_EXPORT ListHead g_ntvTarqTlmTaskListHead;
TARQ_EXPORT ListHead g_tarqTlmFlowTaskListHead;
TARQ_EXPORT ListHead g_tarqTlmFlowHopTaskListHead;
/// Native IP, flow, flow-hop.
TARQ_EXPORT const TlmTaskListMapEntry g_tarqTlmTaskListMap[3];

/// Which encodings a kind's tasks want.
enum KindEncodeType : uint32_t { kGpbOnly = 0, kJsonOnly = 1, kGpbAndJson = 2 };

constexpr bool WantsJson(uint32_t encodeType) { return encodeType == kJsonOnly || encodeType == kGpbAndJson; }
constexpr bool WantsGpb(uint32_t encodeType) { return encodeType == kGpbOnly || encodeType == kGpbAndJson; }

/// Event handlers: `payload` is a `TaskEventPayload`, `length` its size; anything else is refused. 0, or 1 when the
/// task could not be added or the request names no kind. The first add event also starts report performance accounting
/// and the collection timer, whatever it carries.
TARQ_EXPORT uint32_t SAVRO_TARQ_TASK_AddTlmTaskToList(const void* payload, uint32_t length);
TARQ_EXPORT uint32_t SAVRO_TARQ_TASK_DelTlmTaskFromList(const void* payload, uint32_t length);

/// Queries by kind. An unknown `msgId` has no list head, no header (null), no task (0) and the encode type `kGpbOnly`,
/// as has a kind without tasks.
TARQ_EXPORT ListHead* SAVRO_TARQ_TASK_GetTaskHead(uint32_t msgId);
TARQ_EXPORT const char* SAVRO_TARQ_TASK_GetJsonHeader(uint32_t msgId);
TARQ_EXPORT uint32_t SAVRO_TARQ_TASK_HasTlmTask(uint32_t msgId);
TARQ_EXPORT uint32_t SAVRO_TARQ_TASK_GetEncodeType(uint32_t msgId);

/// The task of that key, or null. It stays the list's.
TARQ_EXPORT TlmTaskInfo* SAVRO_TARQ_GetTlmTaskInfo(uint32_t msgId, uint32_t tlmId, uint32_t taskId);

}  // namespace tarq
