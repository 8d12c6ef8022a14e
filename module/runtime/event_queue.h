// The event queue: the one hand-off through which work reaches the worker thread.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

enum EventType : uint32_t {
  SAVRO_TARQ_EVT_STATS = 0,     ///< run a collection cycle; payload: the timer second count
  SAVRO_TARQ_EVT_ADD_TASK = 1,  ///< payload: a `TaskEventPayload`
  SAVRO_TARQ_EVT_DEL_TASK = 2,  ///< payload: a `TaskEventPayload` without description
};

/// One piece of work: this header, then `msgLen` payload bytes in the same buffer from `SAVRO_TARQ_BufAlloc`.
struct EventRecord {
  uint32_t msgType;
  uint32_t msgLen;  ///< never 0

  void* data() { return this + 1; }
};
static_assert(sizeof(EventRecord) == 8);

/// Creates the queue and registers it with the worker's event loop. 0, or 1 or the platform's code with nothing left
/// behind.
TARQ_EXPORT uint32_t SAVRO_TARQ_EVENT_Init();

/// Queues a record. 0: it is the queue's now. 1: logged, it is still the caller's. Any thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_EVENT_Push(EventRecord* record);

/// Read callback: takes one record, dispatches it by its type and releases it, whatever the handler said. Returns 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_EVENT_Pop(void* queue);

/// Flow-control callback: only logs. 0 for the events 0 (start) and 1 (stop), else 1.
TARQ_EXPORT uint32_t SAVRO_TARQ_EVENT_FlowCtrlProc(uint32_t event);

/// Destroys the queue if there is one; the platform's result, or 0. No teardown of the module calls it.
TARQ_EXPORT uint32_t SAVRO_TARQ_EVENT_Destroy();

}  // namespace tarq
