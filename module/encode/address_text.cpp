#include "encode/address_text.h"

#include <charconv>

namespace tarq {

uint32_t SAVRO_TARQ_ConvertMacAddrToStr(const uint8_t* address, char* out, uint32_t room) {
  if (out == nullptr || room < kMacTextRoom) return 1;
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (int i = 0; i < 6; ++i) {
    *out++ = kDigits[address[i] >> 4];
    *out++ = kDigits[address[i] & 0xF];
    if (i == 1 || i == 3) *out++ = '-';
  }
  *out = '\0';
  return 0;
}

uint32_t SAVRO_TARQ_ConvertIpv4AddrToStr(uint32_t address, char* out, uint32_t room) {
  if (out == nullptr || room < kIpv4TextRoom) return 1;
  char* const end = out + room;
  for (int shift = 24; shift >= 0; shift -= 8) {
    out = std::to_chars(out, end, address >> shift & 0xFF).ptr;
    *out++ = shift == 0 ? '\0' : '.';
  }
  return 0;
}

uint32_t SAVRO_TARQ_ConvertIpv6AddrToStr(const uint32_t* address, char* out, uint32_t room) {
  if (out == nullptr || room < kIpv6TextRoom) return 1;
  char* const end = out + room;
  for (int group = 0; group < 8; ++group) {
    const uint32_t shift = group % 2 == 0 ? 16 : 0;
    out = std::to_chars(out, end, address[group / 2] >> shift & 0xFFFF, 16).ptr;
    *out++ = group == 7 ? '\0' : ':';
  }
  return 0;
}

}  // namespace tarq
