// Address texts. Each conversion writes a terminated text to `out`, which has `room` bytes, and returns 0; 1, with
// nothing written, when `out` is null or the room is below the conversion's minimum. Stateless.
#pragma once

#include <cstdint>

#include "export.h"

namespace tarq {

inline constexpr uint32_t kMacTextRoom = 18;
inline constexpr uint32_t kIpv4TextRoom = 32;
inline constexpr uint32_t kIpv6TextRoom = 40;

/// Six bytes in memory order as upper-case hexadecimal, "001A-2B3C-4D5E".
TARQ_EXPORT uint32_t SAVRO_TARQ_ConvertMacAddrToStr(const uint8_t* address, char* out, uint32_t room);

/// An integer whose most significant byte is the first octet, as "192.168.0.1".
TARQ_EXPORT uint32_t SAVRO_TARQ_ConvertIpv4AddrToStr(uint32_t address, char* out, uint32_t room);

/// Four words, the most significant first, as eight lower-case groups without leading zeros and without compression,
/// "2001:db8:0:0:0:0:0:1".
TARQ_EXPORT uint32_t SAVRO_TARQ_ConvertIpv6AddrToStr(const uint32_t* address, char* out, uint32_t room);

}  // namespace tarq
