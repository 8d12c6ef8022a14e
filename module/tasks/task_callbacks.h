// The framework's way in: subscriptions become events for the worker thread.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/framework.h"

namespace tarq {

/// What an add or delete event carries. A delete leaves the description unset.
struct TaskEventPayload {
  uint32_t msgId;  ///< statistics kind
  uint32_t tlmId;
  uint32_t taskId;
  uint32_t reserved;  ///< not set
  TaskDescription description;
};
static_assert(sizeof(TaskEventPayload) == 3480);

/// Callbacks that are registered with the sample paths, one pair per kind. Any thread of the framework. They only queue
/// the request: 0 when it was accepted, or dropped by a full queue, which is logged; 1 when there is no memory for it
/// or no description to copy.
TARQ_EXPORT uint32_t SAVRO_NTVTARQ_AddTlmTask(uint32_t tlmId, uint32_t taskId, const TaskDescription* description);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_AddTlmTask(uint32_t tlmId, uint32_t taskId, const TaskDescription* description);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOWHOP_AddTlmTask(uint32_t tlmId, uint32_t taskId, const TaskDescription* description);
TARQ_EXPORT uint32_t SAVRO_NTVTARQ_DelTlmTask(uint32_t tlmId, uint32_t taskId);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_DelTlmTask(uint32_t tlmId, uint32_t taskId);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOWHOP_DelTlmTask(uint32_t tlmId, uint32_t taskId);

/// What they have in common, with the kind's `msgId`.
TARQ_EXPORT uint32_t SAVRO_TARQ_AddTlmTask(uint32_t msgId, uint32_t tlmId, uint32_t taskId,
                                           const TaskDescription* description);
TARQ_EXPORT uint32_t SAVRO_TARQ_DelTlmTask(uint32_t msgId, uint32_t tlmId, uint32_t taskId);

}  // namespace tarq
