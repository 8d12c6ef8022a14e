#include "encode/native_ip_direction.h"

namespace tarq {

uint32_t SAVRO_NTVTARQ_ENCODE_GetDirection(uint32_t rawDirection, uint32_t directionKind) {
  // Rows: direction kinds 1 to 3; columns: raw directions 1 and 2.
  constexpr uint32_t kDirections[3][2] = {{1, 7}, {8, 4}, {2, 3}};
  if (directionKind < 1 || directionKind > 3 || rawDirection < 1 || rawDirection > 2) return 0;
  return kDirections[directionKind - 1][rawDirection - 1];
}

}  // namespace tarq
