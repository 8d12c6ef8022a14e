#pragma once

#include "encode/address_text.h"
#include "export.h"
#include "platform/message.h"

namespace tarq {

/// Fill both texts, of 32 and 40 bytes, from a record's addresses; the first conversion's failure, else 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_JSON_EncodeIpv4(const FlowEntry* entry, char* source, char* destination);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_JSON_EncodeIpv6(const FlowEntry* entry, char* source, char* destination);

/// A flow record's address texts.
struct FlowAddresses {
  char source[kIpv6TextRoom];
  char destination[kIpv6TextRoom];

  /// False when the record's address family is neither IPv4 nor IPv6.
  bool Fill(const FlowEntry* entry) {
    switch (entry->addressFamily) {
      case 0:
        return SAVRO_TARQ_FLOW_JSON_EncodeIpv4(entry, source, destination) == 0;
      case 1:
        return SAVRO_TARQ_FLOW_JSON_EncodeIpv6(entry, source, destination) == 0;
      default:
        return false;
    }
  }
};

}  // namespace tarq
