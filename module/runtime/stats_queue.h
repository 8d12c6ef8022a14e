// The stats queue: raw statistics messages between their arrival and the next collection cycle.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

/// A received statistics message: this header, then `msgLen` payload bytes in the same buffer from
/// `SAVRO_TARQ_BufAlloc`.
struct StatsMessage {
  uint32_t msgId;  ///< statistics kind
  uint32_t msgLen;

  void* payload() { return this + 1; }
  const void* payload() const { return this + 1; }
};
static_assert(sizeof(StatsMessage) == 8);

/// Creates the queue. 0, or 1 or the platform's code with no queue left behind.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_QUE_Create();

/// Queues a message. 0: it is the queue's now. 1: logged, it is still the caller's. Worker thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_QUE_Push(StatsMessage* message);

/// Takes the oldest message, which is the caller's then; null when there is none. Worker thread.
TARQ_EXPORT StatsMessage* SAVRO_TARQ_STATS_QUE_Pop();

/// Flow-control callback: only logs. 0 for the events 0 (start) and 1 (stop), else 1.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_QUE_FlowCtrlProc(uint32_t event);

/// Destroys the queue if there is one. Messages still in it are not released.
TARQ_EXPORT void SAVRO_TARQ_STATS_QUE_Destroy();

}  // namespace tarq
