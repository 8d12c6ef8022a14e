// The printf templates of JSON members, taken apart at compile time.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarq {

/// What a template has next: literal text, and the conversion behind it.
struct JsonPiece {
  enum class Conversion { kNone, kUnsigned32, kUnsigned64, kText };

  size_t begin;  ///< of the literal text
  size_t size;
  Conversion conversion;

  /// Whether an argument of that type goes with the conversion.
  template <class Argument>
  static constexpr Conversion Of() {
    if constexpr (!std::is_integral_v<Argument>) return Conversion::kText;
    return sizeof(Argument) == 8 ? Conversion::kUnsigned64 : Conversion::kUnsigned32;
  }
};

/// The template `kText`, an array of characters with "%u", "%llu" and "%s" in it.
template <const auto& kText>
struct JsonTemplate {
  static constexpr std::string_view kWhole{kText};
  static constexpr size_t kConversions = static_cast<size_t>(std::ranges::count(kWhole, '%'));

  /// The last one has no conversion.
  static constexpr auto kPieces = [] {
    constexpr std::pair<std::string_view, JsonPiece::Conversion> kSpellings[] = {
        {"%u", JsonPiece::Conversion::kUnsigned32},
        {"%llu", JsonPiece::Conversion::kUnsigned64},
        {"%s", JsonPiece::Conversion::kText}};
    std::array<JsonPiece, kConversions + 1> pieces{};
    size_t at = 0;
    for (JsonPiece& piece : pieces) {
      const size_t percent = std::min(kWhole.find('%', at), kWhole.size());
      piece = {at, percent - at, JsonPiece::Conversion::kNone};
      for (const auto& [spelling, conversion] : kSpellings) {
        if (!kWhole.substr(percent).starts_with(spelling)) continue;
        piece.conversion = conversion;
        at = percent + spelling.size();
      }
    }
    return pieces;
  }();

  template <class... Arguments>
  static constexpr bool Takes() {
    if (sizeof...(Arguments) != kConversions) return false;
    const JsonPiece* piece = kPieces.data();
    return ((piece++->conversion == JsonPiece::Of<Arguments>()) && ...);
  }
};

}  // namespace tarq
