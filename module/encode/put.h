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

inline constexpr auto kPairs = [] {
  std::array<char[2], 100> all{};
  for (uint32_t value = 0; value < all.size(); ++value) {
    all[value][0] = static_cast<char>('0' + value / 10);
    all[value][1] = static_cast<char>('0' + value % 10);
  }
  return all;
}();

inline constexpr uint32_t kTenTo4 = 10'000;
inline constexpr uint32_t kTenTo8 = 100'000'000;

/// For a number below 256.
TARQ_INLINE char* PutByte(char* out, uint32_t value) {
  Store(out, Load<uint32_t>(kByteTexts[value].text));
  return out + kByteTexts[value].digits;
}

/// For a number below 100, with a leading zero.
TARQ_INLINE char* PutTwoDigits(char* out, uint32_t value) {
  Store(out, Load<uint16_t>(kPairs[value]));
  return out + 2;
}

/// For a number below 10^4, with leading zeros.
TARQ_INLINE char* PutFourDigits(char* out, uint32_t value) {
  return PutTwoDigits(PutTwoDigits(out, value / 100), value % 100);
}

/// For a number below 10^8, with leading zeros.
TARQ_INLINE char* PutEightDigits(char* out, uint32_t value) {
  return PutFourDigits(PutFourDigits(out, value / kTenTo4), value % kTenTo4);
}

TARQ_INLINE char* PutUpToFourDigits(char* out, uint32_t value) {
  return value < 256 ? PutByte(out, value) : PutTwoDigits(PutByte(out, value / 100), value % 100);
}

TARQ_INLINE char* PutUpToEightDigits(char* out, uint32_t value) {
  if (value < kTenTo4) return PutUpToFourDigits(out, value);
  return PutFourDigits(PutUpToFourDigits(out, value / kTenTo4), value % kTenTo4);
}

TARQ_INLINE char* PutDecimal(char* out, uint8_t value) { return PutByte(out, value); }

TARQ_INLINE char* PutDecimal(char* out, uint16_t value) {
  if (value < kTenTo4) return PutUpToFourDigits(out, value);
  return PutFourDigits(PutByte(out, value / kTenTo4), value % kTenTo4);
}

TARQ_INLINE char* PutDecimal(char* out, uint32_t value) {
  if (value < kTenTo8) return PutUpToEightDigits(out, value);
  return PutEightDigits(PutByte(out, value / kTenTo8), value % kTenTo8);
}

TARQ_INLINE char* PutDecimal(char* out, uint64_t value) {
  if (value < kTenTo8) return PutUpToEightDigits(out, static_cast<uint32_t>(value));
  const auto low = static_cast<uint32_t>(value % kTenTo8);
  value /= kTenTo8;
  if (value < kTenTo8) return PutEightDigits(PutUpToEightDigits(out, static_cast<uint32_t>(value)), low);
  out = PutUpToFourDigits(out, static_cast<uint32_t>(value / kTenTo8));
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

// A varint has seven bits of the number in each byte, the lowest first; all bytes but the last have their top bit set.

/// For a number below 2^14.
TARQ_INLINE uint8_t* PutUpToTwoBytes(uint8_t* out, uint32_t value) {
  if (value < 0x80) {
    *out = static_cast<uint8_t>(value);
    return out + 1;
  }
  Store(out, static_cast<uint16_t>((value & 0x7F) | 0x80 | (value & 0x3F80) << 1));
  return out + 2;
}

/// For a number below 2^28.
TARQ_INLINE uint8_t* PutUpToFourBytes(uint8_t* out, uint32_t value) {
  if (value < 1 << 14) return PutUpToTwoBytes(out, value);
  const uint32_t four = value >= 1 << 21;
  value += (value & 0x0FFFC000) * 3;  // the upper half moves 2 bits up
  value += value & 0x3F803F80;        // the upper half of each half 1 bit
  Store(out, value | 0x8080 | four << 23);
  return out + 3 + four;
}

/// The lower 56 bits of a number, seven to a byte.
TARQ_INLINE uint64_t SevenToAByte(uint64_t value) {
  value += (value & 0x00FFFFFFF0000000) * 15;  // the upper half moves 4 bits up
  value += (value & 0x0FFFC0000FFFC000) * 3;
  return value + (value & 0x3F803F803F803F80);
}

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint16_t value) { return PutUpToFourBytes(out, value); }

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint32_t value) {
  if (value < 1 << 28) return PutUpToFourBytes(out, value);
  Store(out, SevenToAByte(value) | 0x80808080);
  return out + 5;
}

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint64_t value) {
  if (value < 1 << 28) return PutUpToFourBytes(out, static_cast<uint32_t>(value));
  const uint64_t low = SevenToAByte(value & 0x00FFFFFFFFFFFFFF);
  const uint64_t top = value >> 56;
  if (top == 0) {
    const int bits = 64 - std::countl_zero(low);  // the last byte's top bit is never among them
    const int bytes = (bits + 7) / 8;
    Store(out, low | 0x0080808080808080 >> (64 - 8 * bytes));
    return out + bytes;
  }
  Store(out, low | 0x8080808080808080);
  Store(out + 8, static_cast<uint16_t>(top | (top & 0x80) << 1));
  return out + 9 + (top >> 7);
}

TARQ_INLINE uint8_t* PutVarint(uint8_t* out, uint8_t value) {
  Store(out, static_cast<uint16_t>(value | (value & 0x80) << 1));
  return out + 1 + (value >> 7);
}

}  // namespace tarq
