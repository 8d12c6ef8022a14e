// The module's binding to the telemetry framework's table of functions.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/framework.h"

namespace tarq {

/// Keeps the identifier under which the framework knows the module: the first argument of every call into its table.
void StoreModuleId(uint32_t moduleId);

/// Fetches the framework table from the component registry. Returns the registry's result, 0 for success; a null table
/// is not reported here.
TARQ_EXPORT uint32_t SAVRO_TARQ_InitTlmFrmVtbl();

/// The framework table; null before it is bound. Each of its slots may be null.
TARQ_EXPORT FrameworkTable* SAVRO_TARQ_GetTlmFrmVtbl();

TARQ_EXPORT uint32_t SAVRO_TARQ_GetModuleId();

}  // namespace tarq
