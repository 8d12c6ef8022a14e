// Unchecked writers: each puts one item at `out` and returns its end. The caller guarantees the room; up to `kPutSlack`
// bytes behind the end may be overwritten. Host byte order is little-endian.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tarq {

static_assert(std::endian::native == std::endian::little);

#define TARQ_INLINE [[gnu::always_inline]] inline

inline constexpr size_t kPutSlack = 8;

template <class Word>
TARQ_INLINE Word Load(const void* from) {
  Word word;
  memcpy(&word, from, sizeof(word));
  return word;
}

template <class Word>
TARQ_INLINE void Store(void* to, Word word) {
  memcpy(to, &word, sizeof(word));
}

// ---- Decimal ----

/// A number's digits and, behind them, a dot.
struct ByteText {
  char text[4];
  uint32_t digits;
};

inline constexpr auto kByteTexts = [] {
  std::array<ByteText, 256> all{};
  for (uint32_t value = 0; value < all.size(); ++value) {
    ByteText& to = all[value];
    for (uint32_t unit : {100u, 10u, 1u}) {
      if (value >= unit || unit == 1) to.text[to.digits++] = static_cast<char>('0' + value / unit % 10);
    }
    to.text[to.digits] = '.';
  }
  return all;
}();

inline constexpr uint32_t kTenTo4 = 10'000;
inline constexpr uint32_t kTenTo8 = 100'000'000;
inline constexpr uint64_t kTenTo16 = uint64_t{kTenTo8} * kTenTo8;
inline constexpr uint64_t kZeros = 0x3030303030303030;

/// The eight decimal digits of a number below 10^8 as bytes 0 to 9, the most significant in the lowest byte. Each step
/// splits all parts at once: into two of four digits, four of two, eight of one.
TARQ_INLINE uint64_t EightDigits(uint32_t value) {
  const uint64_t fours = value / kTenTo4 | uint64_t{value % kTenTo4} << 32;
  const uint64_t hundreds = fours * 10486 >> 20 & 0x0000007F0000007F;  // 10486 / 2^20 is 1/100 for up to four digits
  const uint64_t twos = ((fours - 100 * hundreds) << 16) + hundreds;
  const uint64_t tens = twos * 103 >> 10 & 0x000F000F000F000F;  // 103 / 2^10 is 1/10 for up to two digits
  return ((twos - 10 * tens) << 8) + tens;
}

TARQ_INLINE char* PutEightDigits(char* out, uint32_t value) {
  Store(out, EightDigits(value) | kZeros);
  return out + 8;
}

TARQ_INLINE char* PutByte(char* out, uint32_t value) {
  Store(out, Load<uint32_t>(kByteTexts[value].text));
  return out + kByteTexts[value].digits;
}

/// For a number below 10^8.
TARQ_INLINE char* PutUpToEightDigits(char* out, uint32_t value) {
  if (value < 256) return PutByte(out, value);
  const uint64_t digits = EightDigits(value);
  const int leadingZeros = std::countr_zero(digits) & ~7;  // in bits
  Store(out, (digits | kZeros) >> leadingZeros);
  return out + 8 - leadingZeros / 8;
}

TARQ_INLINE char* PutDecimal(char* out, uint8_t value) { return PutByte(out, value); }
TARQ_INLINE char* PutDecimal(char* out, uint16_t value) { return PutUpToEightDigits(out, value); }

TARQ_INLINE char* PutDecimal(char* out, uint32_t value) {
  if (value < kTenTo8) return PutUpToEightDigits(out, value);
  return PutEightDigits(PutByte(out, value / kTenTo8), value % kTenTo8);
}

TARQ_INLINE char* PutDecimal(char* out, uint64_t value) {
  if (value < kTenTo8) return PutUpToEightDigits(out, static_cast<uint32_t>(value));
  const auto low = static_cast<uint32_t>(value % kTenTo8);
  value /= kTenTo8;
  if (value < kTenTo8) return PutEightDigits(PutUpToEightDigits(out, static_cast<uint32_t>(value)), low);
  out = PutUpToEightDigits(out, static_cast<uint32_t>(value / kTenTo8));
  return PutEightDigits(PutEightDigits(out, static_cast<uint32_t>(value % kTenTo8)), low);
}

// ---- Hexadecimal ----

struct HexPairs {
  char pairs[256][2];
};

consteval HexPairs MakeHexPairs(const char (&digits)[17]) {
  HexPairs made{};
  for (int value = 0; value < 256; ++value) {
    made.pairs[value][0] = digits[value >> 4];
    made.pairs[value][1] = digits[value & 0xF];
  }
  return made;
}

inline constexpr HexPairs kLowerHex = MakeHexPairs("0123456789abcdef");
inline constexpr HexPairs kUpperHex = MakeHexPairs("0123456789ABCDEF");

/// Four digits at most, without leading zeros.
TARQ_INLINE char* PutHexGroup(char* out, uint32_t group) {
  const uint32_t all =
      Load<uint16_t>(kLowerHex.pairs[group >> 8]) | uint32_t{Load<uint16_t>(kLowerHex.pairs[group & 0xFF])} << 16;
  const int leadingZeros = std::countl_zero(static_cast<uint16_t>(group | 1)) / 4;
  Store(out, all >> 8 * leadingZeros);
  return out + 4 - leadingZeros;
}

// ---- Addresses ----

/// Longest texts of an address: 15 and 39 characters.
TARQ_INLINE char* PutIpv4(char* out, uint32_t address) {
  for (int shift = 24; shift >= 0; shift -= 8) out = PutByte(out, address >> shift & 0xFF) + 1;
  return out - 1;
}

TARQ_INLINE char* PutIpv6(char* out, const uint32_t* words) {
  for (int group = 0; group < 8; ++group) {
    out = PutHexGroup(out, words[group / 2] >> (group % 2 == 0 ? 16 : 0) & 0xFFFF);
    *out++ = ':';
  }
  return out - 1;
}

/// 14 characters.
TARQ_INLINE char* PutMac(char* out, const uint8_t* address) {
  for (int i = 0; i < 6; i += 2) {
    Store(out, Load<uint16_t>(kUpperHex.pairs[address[i]]));
    Store(out + 2, Load<uint16_t>(kUpperHex.pairs[address[i + 1]]));
    out[4] = '-';
    out += 5;
  }
  return out - 1;
}

// ---- Texts ----

/// A record's fixed-size text up to its terminator; all of it where it has none.
template <size_t N>
TARQ_INLINE char* PutField(char* out, const char (&field)[N]) {
  static_assert(N % 8 == 0);
  for (size_t i = 0; i < N; i += 8) {
    const auto word = Load<uint64_t>(field + i);
    Store(out + i, word);
    const uint64_t zeros = (word - 0x0101010101010101) & ~word & 0x8080808080808080;  // the lowest one is exact
    if (zeros != 0) return out + i + std::countr_zero(zeros) / 8;
  }
  return out + N;
}

// ---- Varints ----

/// Continuation bits of a varint of so many bytes.
inline constexpr uint64_t kContinuation[] = {
    0, 0, 0x80, 0x8080, 0x808080, 0x80808080, 0x8080808080, 0x808080808080, 0x80808080808080};

/// The lower 56 bits, seven to a byte.
TARQ_INLINE uint64_t SevenToAByte(uint64_t value) {
  value += (value & 0x00FFFFFFF0000000) * 15;  // the upper half moves 4 bits up
  value += (value & 0x0FFFC0000FFFC000) * 3;   // the upper half of each half 2 bits
  return value + (value & 0x3F803F803F803F80);
}

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint64_t value) {
  if (value < 0x80) {
    *out = static_cast<uint8_t>(value);
    return out + 1;
  }
  if (value >> 56 != 0) {  // nine or ten bytes
    Store(out, SevenToAByte(value & 0x00FFFFFFFFFFFFFF) | 0x8080808080808080);
    const uint64_t top = value >> 56;
    Store(out + 8, static_cast<uint16_t>(top | (top & 0x80) << 1));
    return out + 9 + (top >> 7);
  }
  const size_t bytes = (static_cast<size_t>(std::bit_width(value)) * 9 + 64) / 64;
  Store(out, SevenToAByte(value) | kContinuation[bytes]);
  return out + bytes;
}

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint32_t value) { return PutVarint(out, uint64_t{value}); }

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint16_t value) {
  if (value < 0x80) {
    *out = static_cast<uint8_t>(value);
    return out + 1;
  }
  const uint32_t three = value >> 14 != 0;
  Store(out, (value & 0x7Fu) | (value & 0x3F80u) << 1 | (value & 0xC000u) << 2 | 0x80 | three << 15);
  return out + 2 + three;
}

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint8_t value) {
  Store(out, static_cast<uint16_t>(value | (value & 0x80) << 1));
  return out + 1 + (value >> 7);
}

}  // namespace tarq
