// The YANG sample paths that the module serves.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

/// Registers the three sample paths with the framework. A path that the framework refuses is logged and skipped.
/// Returns 0, also when single paths were refused; 1 when the framework table or its registration slot is missing.
TARQ_EXPORT uint32_t SAVRO_TARQ_SampleXpathRegister();

/// Query callback of every sample path: takes whatever it is given, does nothing, returns 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_QueryFunc();

}  // namespace tarq
