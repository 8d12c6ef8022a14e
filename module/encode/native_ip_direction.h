#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

/// The direction that both encodings of a native IP record carry; 0 for inputs that map to none.
TARQ_EXPORT uint32_t SAVRO_NTVTARQ_ENCODE_GetDirection(uint32_t rawDirection, uint32_t directionKind);

}  // namespace tarq
