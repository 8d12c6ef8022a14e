// Scrambling of 64-bit words, for hashes and made-up numbers.
#pragma once

#include <cstdint>

namespace tarq::meter {

inline constexpr uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;

/// Spreads every bit of `x` over all bits of the result, one to one (the finalizer of SplitMix64).
constexpr uint64_t Mix(uint64_t x) {
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
  return x ^ (x >> 31);
}

/// A sequence of random numbers, the same everywhere for the same start (SplitMix64).
struct RandomSequence {
  uint64_t state;
  uint64_t operator()() { return Mix(state += kGoldenRatio); }
};

}  // namespace tarq::meter
