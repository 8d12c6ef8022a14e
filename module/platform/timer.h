// The platform's periodic timers.
#pragma once

#include <cstdint>

namespace tarq {
extern "C" {

/// Starts a timer that calls `onTick(context)` every `periodMs` milliseconds on the thread of the event loop `epollId`.
/// A loop that comes late makes up for every tick that fell due, so that ticks count elapsed time.
/// Returns the timer's identifier; negative on failure.
int32_t WUX_TIMER_Create(uint32_t periodMs, uint32_t (*onTick)(void* context), void* context, uint32_t epollId);

/// Names the timer, for the platform's own displays. `name` is copied. Returns 0 on success.
uint32_t WUX_TIMER_SetName(uint32_t timerId, const char* name);

/// Stops and releases the timer. Returns 0 on success; non-zero when `timerId` names none.
uint32_t WUX_TIMER_Destroy(uint32_t timerId);

}  // extern "C"
}  // namespace tarq
