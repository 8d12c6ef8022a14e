// A record's texts, by the C library.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/message.h"

namespace tarq::test {

/// A text field's value, with or without a terminator.
template <size_t N>
std::string TextOf(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

inline std::string Ipv4(uint32_t a) {
  return std::to_string(a >> 24) + "." + std::to_string(a >> 16 & 255) + "." + std::to_string(a >> 8 & 255) + "." +
         std::to_string(a & 255);
}
inline std::string Ip(const FlowEntry& e, const IpAddress& address) {
  if (e.addressFamily == 0) return Ipv4(address.words[0]);
  char text[40];
  const uint32_t* w = address.words;
  snprintf(text, sizeof(text), "%x:%x:%x:%x:%x:%x:%x:%x", w[0] >> 16, w[0] & 0xFFFF, w[1] >> 16, w[1] & 0xFFFF,
           w[2] >> 16, w[2] & 0xFFFF, w[3] >> 16, w[3] & 0xFFFF);
  return text;
}

inline std::string Mac(const uint8_t* mac) {
  char text[15];
  snprintf(text, sizeof(text), "%02X%02X-%02X%02X-%02X%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

}  // namespace tarq::test
