#pragma once

#include "platform/queue.h"
#include "runtime/worker.h"

namespace tarq {

/// Both queues' flow-control monitor: stop at 80 % of the depth, start again at 20 %, told on the worker thread.
inline QueueMonitor MonitorOfDepth(uint32_t depth) {
  QueueMonitor monitor = {};
  monitor.upperThreshold = depth * 8 / 10;
  monitor.lowerThreshold = depth * 2 / 10;
  monitor.epollId = SAVRO_TARQ_THREAD_GetEpollId();
  return monitor;
}

/// Second argument of `WUX_QUE_CreateNew`, the same for both queues.
inline constexpr uint32_t kQueueKind = 6;

}  // namespace tarq
