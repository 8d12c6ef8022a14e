#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <iostream>

namespace tarq::fuzz {

/// Ends the process, for the fuzzer to keep the input, when `good` does not hold.
inline void Check(bool good, const char* rule) {
  if (good) return;
  std::cerr << "broken: " << rule << std::endl;
  std::abort();
}

}  // namespace tarq::fuzz
