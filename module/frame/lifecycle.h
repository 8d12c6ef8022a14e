// The module's entry points, which the host finds by name.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

/// Starts the module: binds the framework table, registers the sample paths, starts the worker thread, the event queue
/// and statistics intake. Called once, on a thread of the framework. Returns 0, or the failing step's code after
/// undoing the worker's event loop and the intake.
TARQ_EXPORT uint32_t SAVRO_TARQ_Init(uint32_t moduleId);

/// Stops statistics intake and the worker's event loop. Sample paths, event queue, timer, tasks, sample buffers and the
/// worker task itself stay; it neither signals the worker nor waits for it. Returns the event loop teardown's result.
TARQ_EXPORT uint32_t SAVRO_TARQ_Destory();

}  // namespace tarq
