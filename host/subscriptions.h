// Who wants what: one subscription is one task of the module.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/kinds.h"
#include "platform/framework.h"

namespace tarq::host {

/// Subscriptions that one host takes at most: all their add requests fit the module's event queue together.
inline constexpr size_t kMaxSubscriptions = 256;
/// Report interval of a subscription that names none.
inline constexpr std::chrono::milliseconds kDefaultInterval{10'000};
/// Longest report interval: what a 32-bit count of milliseconds holds, about 49 days.
inline constexpr uint64_t kMaxIntervalMs = UINT32_MAX;
/// The first subscription's `tlmId`; the others follow.
inline constexpr uint32_t kFirstTlmId = 1000;

struct Subscription {
  const Kind* kind;  ///< one of `kKinds`
  CodeType encoding;
  uint32_t intervalMs;  ///< report interval in milliseconds
  uint32_t index = 0;   ///< place among all subscriptions, from 0

  uint32_t tlmId() const { return kFirstTlmId + index; }
  /// Unique over all subscriptions, so that a sample maps back to its subscription.
  uint32_t taskId() const { return index + 1; }
  std::string_view encodingName() const { return encoding == kCodeTypeJson ? "json" : "gpb"; }
  /// As users write it with the short name and without interval, for example "flow:json".
  std::string text() const;
};

/// Reads `KIND:ENCODING[:INTERVAL]`. KIND is a short name or a whole sample path, ENCODING `json` or `gpb`, INTERVAL a
/// number with `ms`, `s`, `m` or `h`. Throws `std::invalid_argument` with a text that names what is wrong and the
/// remedy.
Subscription ParseSubscription(std::string_view text);

/// Reads all of them and numbers them in order from `first` on; without any, every kind in `defaultEncoding`. Throws as
/// above, also where the numbers reach `kMaxSubscriptions`.
std::vector<Subscription> ParseSubscriptions(const std::vector<std::string>& texts,
                                             CodeType defaultEncoding = kCodeTypeJson, size_t first = 0);

}  // namespace tarq::host
