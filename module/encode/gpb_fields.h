// Two ways to write the same GPB fields, one behind the other. A kind lists its fields once, as functions over either.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "encode/address_text.h"
#include "encode/field_text.h"
#include "encode/gpb.h"
#include "encode/put.h"

namespace tarq {

/// Writes with the primitives: every item is checked, and its failure logged. The first failure sticks and is the
/// result; nothing is written after it.
class CheckedGpb {
 public:
  CheckedGpb(uint8_t* out, uint32_t room) : out_(out), room_(room) {}

  void Integer(uint32_t fieldId, uint64_t value) {
    if (result_ >= 0) Add(SAVRO_TARQ_GPB_EncodeInterger(fieldId, value, out_, room_));
  }
  void Text(uint32_t fieldId, const char* text) {
    if (result_ >= 0) Add(SAVRO_TARQ_GPB_EncodeString(fieldId, text, out_, room_));
  }
  template <size_t N>
  void Field(uint32_t fieldId, const char (&field)[N]) {
    Text(fieldId, FieldText(field).Text());
  }
  void Ipv4(uint32_t fieldId, uint32_t address) {
    char text[kIpv4TextRoom];
    SAVRO_TARQ_ConvertIpv4AddrToStr(address, text, sizeof(text));
    Text(fieldId, text);
  }
  void Ipv6(uint32_t fieldId, const uint32_t* address) {
    char text[kIpv6TextRoom];
    SAVRO_TARQ_ConvertIpv6AddrToStr(address, text, sizeof(text));
    Text(fieldId, text);
  }
  void Mac(uint32_t fieldId, const uint8_t* address) {
    char text[kMacTextRoom];
    SAVRO_TARQ_ConvertMacAddrToStr(address, text, sizeof(text));
    Text(fieldId, text);
  }
  /// The record cannot be encoded.
  void Fail() {
    if (result_ >= 0) result_ = kEncodeFailed;
  }

  /// Bytes written, or the first failure.
  int32_t Result() const { return result_; }

 private:
  void Add(int32_t written) {
    if (written < 0) {
      result_ = written;
      return;
    }
    out_ += written;
    room_ -= static_cast<uint32_t>(written);
    result_ += written;
  }

  uint8_t* out_;
  uint32_t room_;
  int32_t result_ = 0;
};

/// Writes where there is room for the largest record and `kPutSlack` bytes: nothing is checked but texts without a
/// limit of their own.
class UncheckedGpb {
 public:
  /// Terminated texts may take so many bytes together.
  static constexpr size_t kLongestTexts = 340;

  TARQ_INLINE explicit UncheckedGpb(uint8_t* out) : out_(out) {}

  template <class Number>
  TARQ_INLINE void Integer(uint32_t fieldId, Number value) {
    Key(fieldId, kWireVarint);
    out_ = PutVarint(out_, value);
  }
  TARQ_INLINE void Text(uint32_t fieldId, const char* text) {
    const auto* end = static_cast<const char*>(memchr(text, '\0', textRoom_ + 1));
    if (end == nullptr) return Fail();
    const auto length = static_cast<size_t>(end - text);
    textRoom_ -= length;
    Key(fieldId, kWireLengthDelimited);
    out_ = PutVarint(out_, uint64_t{length});
    memcpy(out_, text, length);
    out_ += length;
  }
  template <size_t N>
  TARQ_INLINE void Field(uint32_t fieldId, const char (&field)[N]) {
    ShortText(fieldId, [&](char* out) { return PutField(out, field); });
  }
  TARQ_INLINE void Ipv4(uint32_t fieldId, uint32_t address) {
    ShortText(fieldId, [=](char* out) { return PutIpv4(out, address); });
  }
  TARQ_INLINE void Ipv6(uint32_t fieldId, const uint32_t* address) {
    ShortText(fieldId, [=](char* out) { return PutIpv6(out, address); });
  }
  TARQ_INLINE void Mac(uint32_t fieldId, const uint8_t* address) {
    ShortText(fieldId, [=](char* out) { return PutMac(out, address); });
  }
  /// This record needs `CheckedGpb`.
  TARQ_INLINE void Fail() { failed_ = true; }

  bool failed() const { return failed_; }
  uint8_t* end() const { return out_; }

 private:
  TARQ_INLINE void Key(uint32_t fieldId, WireType wireType) {
    const uint32_t key = fieldId << 3 | wireType;
    if (key < 0x80) {
      *out_++ = static_cast<uint8_t>(key);
    } else {
      Store(out_, static_cast<uint16_t>((key & 0x7F) | 0x80 | key >> 7 << 8));
      out_ += 2;
    }
  }
  /// A text of at most 127 bytes.
  template <class Put>
  TARQ_INLINE void ShortText(uint32_t fieldId, Put put) {
    Key(fieldId, kWireLengthDelimited);
    uint8_t* const text = out_ + 1;
    out_ = reinterpret_cast<uint8_t*>(put(reinterpret_cast<char*>(text)));
    text[-1] = static_cast<uint8_t>(out_ - text);
  }

  uint8_t* out_;
  size_t textRoom_ = kLongestTexts;
  bool failed_ = false;
};

/// Fields of a record, checked, as a step of its own.
template <class Fields, class Entry>
int32_t EncodeGpbFields(Fields fields, const Entry* entry, uint8_t* out, uint32_t room) {
  CheckedGpb run(out, room);
  fields(run, *entry);
  return run.Result();
}

}  // namespace tarq
