#include "encode/address_text.h"

#include "encode/put.h"

namespace tarq {

uint32_t SAVRO_TARQ_ConvertMacAddrToStr(const uint8_t* address, char* out, uint32_t room) {
  if (out == nullptr || room < kMacTextRoom) return 1;
  *PutMac(out, address) = '\0';
  return 0;
}

uint32_t SAVRO_TARQ_ConvertIpv4AddrToStr(uint32_t address, char* out, uint32_t room) {
  if (out == nullptr || room < kIpv4TextRoom) return 1;
  *PutIpv4(out, address) = '\0';
  return 0;
}

uint32_t SAVRO_TARQ_ConvertIpv6AddrToStr(const uint32_t* address, char* out, uint32_t room) {
  if (out == nullptr || room < kIpv6TextRoom) return 1;
  *PutIpv6(out, address) = '\0';
  return 0;
}

}  // namespace tarq
