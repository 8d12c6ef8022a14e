// The worker thread: a platform task whose body is the platform's event loop.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

/// Identifier of an absent event loop instance or timer.
inline constexpr uint32_t kNoId = 0xFFFFFFFF;

/// Creates the event loop, then the worker task. 0, or 1 with what was created left for `SAVRO_TARQ_THREAD_Destroy`.
TARQ_EXPORT uint32_t SAVRO_TARQ_THREAD_Init();

/// The two steps of the above; 0 or 1.
TARQ_EXPORT uint32_t SAVRO_TARQ_THREAD_CreateEpoll();
TARQ_EXPORT uint32_t SAVRO_TARQ_THREAD_CreateStatsTask();

/// The worker task's entry: serves the event loop until it is destroyed. Its arguments are not used.
TARQ_EXPORT uint32_t SAVRO_TARQ_THREAD_StatsMain(void* arguments);

/// Identifier of the worker's event loop; all ones when there is none. Any thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_THREAD_GetEpollId();

/// Destroys the event loop, which ends the worker task. Returns the platform's result, 0 when there is none to destroy.
TARQ_EXPORT uint32_t SAVRO_TARQ_THREAD_Destroy();

}  // namespace tarq
