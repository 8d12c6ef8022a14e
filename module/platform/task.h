// The platform's tasks (threads).
#pragma once

#include <cstdint>

namespace tarq {
extern "C" {

/// Starts a task named `name` (copied) that runs `entry(arguments)` once, and stores its identifier in `taskId`.
/// The module passes 1, 0 and 0 for `priority`, `stackSize` and `flags`, and a block of 32 zero bytes for `arguments`,
/// which is valid only during this call; its entry reads none of it. The task may start before the call returns.
/// Returns 0 on success; on failure no task runs.
uint32_t JEV_TaskCreate(const char* name, uint32_t* taskId, uint32_t (*entry)(void* arguments), uint32_t priority,
                        uint64_t stackSize, uint32_t flags, void* arguments);

}  // extern "C"
}  // namespace tarq
