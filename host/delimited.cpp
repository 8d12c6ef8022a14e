#include "host/delimited.h"

namespace tarq::host {

std::string Delimited(const Subscription&, const standin::Sample& sample) {
  std::string bytes;
  size_t length = sample.data.size();
  for (; length >= 0x80; length >>= 7) bytes += static_cast<char>(length | 0x80);
  bytes += static_cast<char>(length);
  return bytes += sample.data;
}

}  // namespace tarq::host
