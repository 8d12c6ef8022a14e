#include "host/subscriptions.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>
#include <stdexcept>

namespace tarq::host {
namespace {

struct Split {
  std::string_view head;
  std::string_view tail;
};

/// Splits at the last colon; a text without one is all tail. Sample paths hold colons, so texts are read from the
/// right.
Split SplitLast(std::string_view text) {
  size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return {{}, text};
  return {text.substr(0, colon), text.substr(colon + 1)};
}

std::optional<CodeType> EncodingOf(std::string_view name) {
  if (name == "json") return kCodeTypeJson;
  if (name == "gpb") return kCodeTypeGpb;
  return std::nullopt;
}

uint64_t MillisecondsPer(std::string_view unit) {
  if (unit == "ms") return 1;
  if (unit == "s") return 1000;
  if (unit == "m") return 60'000;
  if (unit == "h") return 3'600'000;
  return 0;
}

std::optional<uint32_t> IntervalOf(std::string_view text) {
  uint64_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  uint64_t unit = MillisecondsPer(text.substr(static_cast<size_t>(end - text.data())));
  if (error != std::errc{} || unit == 0 || number > kMaxIntervalMs / unit) return std::nullopt;
  return static_cast<uint32_t>(number * unit);
}

[[noreturn]] void Refuse(std::string_view text, std::string_view reason) {
  throw std::invalid_argument(fmt::format("subscription \"{}\": {}", text, reason));
}

const Kind* KindOrRefuse(std::string_view text, std::string_view name) {
  const Kind* kind = FindKind(name);
  if (!kind) {
    Refuse(text, fmt::format("unknown kind \"{}\"; take native-ip, flow, flow-hop or a whole sample path", name));
  }
  return kind;
}

}  // namespace

std::string Subscription::text() const { return fmt::format("{}:{}", kind->name, encodingName()); }

Subscription ParseSubscription(std::string_view text) {
  auto [head, tail] = SplitLast(text);
  if (auto encoding = EncodingOf(tail)) {
    return {KindOrRefuse(text, head), *encoding, static_cast<uint32_t>(kDefaultInterval.count())};
  }
  auto [kindName, encodingName] = SplitLast(head);
  auto encoding = EncodingOf(encodingName);
  if (!encoding) Refuse(text, "no encoding \"json\" or \"gpb\" in it; write KIND:ENCODING[:INTERVAL]");
  auto interval = IntervalOf(tail);
  if (!interval) {
    Refuse(text,
           fmt::format("bad interval \"{}\"; write a number with ms, s, m or h, at most {}ms", tail, kMaxIntervalMs));
  }
  return {KindOrRefuse(text, kindName), *encoding, *interval};
}

std::vector<Subscription> ParseSubscriptions(const std::vector<std::string>& texts, CodeType defaultEncoding,
                                             size_t first) {
  std::vector<Subscription> subscriptions;
  for (const std::string& text : texts) subscriptions.push_back(ParseSubscription(text));
  if (texts.empty()) {
    for (const char* kind : {"flow", "flow-hop", "native-ip"}) {
      subscriptions.push_back({FindKind(kind), defaultEncoding, static_cast<uint32_t>(kDefaultInterval.count())});
    }
  }
  if (first + subscriptions.size() > kMaxSubscriptions) {
    throw std::invalid_argument(fmt::format("{} subscriptions given, {} is the most; start a second host",
                                            first + subscriptions.size(), kMaxSubscriptions));
  }
  for (Subscription& subscription : subscriptions) subscription.index = static_cast<uint32_t>(first++);
  return subscriptions;
}

}  // namespace tarq::host
