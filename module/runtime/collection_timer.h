// The collection timer: the module's clock, which starts a collection cycle every third second.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

/// Starts the one-second timer on the worker's event loop. 0, or 1 with no timer left running. Worker thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_CreateTimer();

/// The tick: counts a second and posts a stats event at every third. Its context is not used. Returns 0. Worker thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_TimerCallback(void* context);

/// Seconds counted since the timer was created, modulo 2^32; 0 before. Worker thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_GetTimerSecondCnt();

/// Posts a stats event that carries `timerSecondCnt`. 1 when there is no memory for it, else 0, also when the event
/// queue refused it, which is only logged. Worker thread.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_PushStatsEventToQue(uint32_t timerSecondCnt);

/// Stops the timer. No teardown of the module calls it.
TARQ_EXPORT void SAVRO_TARQ_STATS_DestroyTimer();

}  // namespace tarq
