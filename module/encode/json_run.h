// Two ways to write JSON by the same templates, one piece behind the other. A kind lists its members' values once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "encode/address_text.h"
#include "encode/encoders.h"
#include "encode/json_template.h"
#include "encode/put.h"
#include "platform/bounded.h"

namespace tarq {

// ---- Values that are neither number nor text of the record ----

struct Ipv4Value {
  uint32_t address;
};
/// `family` is 0 for IPv4 and 1 for IPv6.
struct IpValue {
  uint8_t family;
  const IpAddress& address;
};
struct MacValue {
  const uint8_t* address;
};

/// Writes with bounded formatted writes. The first piece that does not fit or cannot be formatted fails the run;
/// nothing is written after it.
class CheckedJson {
 public:
  CheckedJson(char* out, uint32_t room) : out_(out), room_(room) {}

  template <const auto& kText, class... Values>
  void Format(JsonTemplate<kText>, const Values&... values) {
    static_assert(JsonTemplate<kText>::template Takes<Values...>());
    if (!failed_) Add(sprintf_s(out_ + written_, room_ - written_, kText, Argument<Values>(values).value...));
  }
  void Text(const char* text) {
    if (!failed_) Add(sprintf_s(out_ + written_, room_ - written_, "%s", text));
  }
  /// Goes back onto the last character written, which the next piece then overwrites.
  void StepBack() {
    if (written_ > 0) --written_;
  }

  /// Bytes written, or -1.
  int32_t Result() const { return failed_ ? kEncodeFailed : static_cast<int32_t>(written_); }

 private:
  template <class Value>
  struct Argument {
    explicit Argument(Value from) : value(from) {}
    Value value;
  };

  void Add(int32_t written) {
    failed_ = written < 0;
    if (!failed_) written_ += static_cast<uint32_t>(written);
  }

  char* out_;
  uint32_t room_;
  uint32_t written_ = 0;
  bool failed_ = false;
};

template <>
struct CheckedJson::Argument<uint64_t> {
  explicit Argument(uint64_t from) : value(from) {}
  unsigned long long value;
};
template <>
struct CheckedJson::Argument<Ipv4Value> {
  explicit Argument(Ipv4Value from) { SAVRO_TARQ_ConvertIpv4AddrToStr(from.address, value, sizeof(value)); }
  char value[kIpv4TextRoom];
};
template <>
struct CheckedJson::Argument<MacValue> {
  explicit Argument(MacValue from) { SAVRO_TARQ_ConvertMacAddrToStr(from.address, value, sizeof(value)); }
  char value[kMacTextRoom];
};

/// Writes where there is room for the largest record and `kPutSlack` bytes: nothing is checked but texts without a
/// limit of their own.
class UncheckedJson {
 public:
  /// Terminated texts may take so many bytes together.
  static constexpr size_t kLongestTexts = 340;

  TARQ_INLINE explicit UncheckedJson(char* out) : out_(out) {}

  template <const auto& kText, class... Values>
  TARQ_INLINE void Format(JsonTemplate<kText>, const Values&... values) {
    static_assert(JsonTemplate<kText>::template Takes<std::decay_t<Values>...>());
    Put<kText>(std::index_sequence_for<Values...>(), values...);
    Literal<kText, sizeof...(Values)>();
  }
  template <size_t N>
  TARQ_INLINE void Text(const char (&text)[N]) {
    memcpy(out_, text, N - 1);
    out_ += N - 1;
  }
  TARQ_INLINE void StepBack() { --out_; }

  /// A text is too long: this record needs `CheckedJson`.
  bool failed() const { return failed_; }
  char* end() const { return out_; }

 private:
  template <const auto& kText, size_t kIndex>
  TARQ_INLINE void Literal() {
    constexpr JsonPiece kPiece = JsonTemplate<kText>::kPieces[kIndex];
    memcpy(out_, kText + kPiece.begin, kPiece.size);
    out_ += kPiece.size;
  }

  template <const auto& kText, size_t... kIndex, class... Values>
  TARQ_INLINE void Put(std::index_sequence<kIndex...>, const Values&... values) {
    ((Literal<kText, kIndex>(), Put(values)), ...);
  }

  template <class Number>
  requires std::is_integral_v<Number> TARQ_INLINE void Put(const Number& value) { out_ = PutDecimal(out_, value); }
  template <size_t N>
  TARQ_INLINE void Put(const char (&field)[N]) {
    out_ = PutField(out_, field);
  }
  template <class Text>
  requires std::is_same_v<Text, const char*>  // and not an array
      TARQ_INLINE void Put(const Text& text) {
    const auto* end = static_cast<const char*>(memchr(text, '\0', textRoom_ + 1));
    if (end == nullptr) {
      failed_ = true;
      return;
    }
    const auto length = static_cast<size_t>(end - text);
    textRoom_ -= length;
    memcpy(out_, text, length);
    out_ += length;
  }
  TARQ_INLINE void Put(const Ipv4Value& value) { out_ = PutIpv4(out_, value.address); }
  TARQ_INLINE void Put(const IpValue& value) {
    out_ = value.family == 0 ? PutIpv4(out_, value.address.words[0]) : PutIpv6(out_, value.address.words);
  }
  TARQ_INLINE void Put(const MacValue& value) { out_ = PutMac(out_, value.address); }

  char* out_;
  size_t textRoom_ = kLongestTexts;
  bool failed_ = false;
};

}  // namespace tarq
