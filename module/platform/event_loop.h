// The platform's event loop. One instance serves one worker thread; every source registered on it calls back there.
#pragma once

#include <cstdint>

namespace tarq {
extern "C" {

/// Creates an event loop instance. The module passes 0.
/// Returns its identifier; negative on failure. The instance lives until `WUX_EPOLL_Destroy`.
int32_t WUX_EPOLL_Create(uint32_t flags);

/// Serves the instance `id` on the calling thread: calls the callback of each ready source, one at a time.
/// The module passes 5 (events taken per wait) and -1 (wait without a time limit).
/// Returns once the instance is destroyed, at once when `id` names none. Sources may be registered from any thread
/// meanwhile.
uint32_t WUX_EPOLL_Run(uint32_t id, uint32_t eventsPerWait, int32_t timeoutMs);

/// Ends the instance's loop, if one runs, and releases the instance. Any thread may call it; it does not wait for the
/// loop. Returns 0; non-zero when `id` names no instance.
uint32_t WUX_EPOLL_Destroy(uint32_t id);

}  // extern "C"
}  // namespace tarq
