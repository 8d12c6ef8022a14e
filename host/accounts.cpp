#include "host/accounts.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace tarq::host {
namespace {

// Sizes of the buffers that the module keeps to the end, and how many of each.
constexpr uint32_t kSampleBufferSize = sizeof(SampleBuffer);
constexpr uint64_t kSampleBuffers = 2 * kKinds.size();
constexpr uint32_t kPeriodTableSize = 4096;
constexpr uint32_t kTaskRecordSize = 3496;  // one for each subscription

uint64_t Minus(uint64_t a, uint64_t b) { return a > b ? a - b : 0; }

standin::QueueStatus FindQueue(const std::vector<standin::QueueStatus>& queues, std::string_view name) {
  auto found = std::ranges::find(queues, name, &standin::QueueStatus::name);
  return found == queues.end() ? standin::QueueStatus{} : *found;
}

uint64_t MessagesOf(const standin::ChannelCounters& channel, uint32_t msgId) {
  auto found = channel.messagesById.find(msgId);
  return found == channel.messagesById.end() ? 0 : found->second;
}

/// Gathers the lines of `Losses`: a count of 0 makes none.
class LossList {
 public:
  template <class... Args>
  void Add(const uint64_t& count, fmt::format_string<const uint64_t&, const Args&...> format, const Args&... args) {
    if (count > 0) lines_.push_back(fmt::format(format, count, args...));
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

void AddSubscription(LossList& losses, const SubscriptionAccount& account) {
  const auto& [subscription, counters, missing] = account;
  std::string name = fmt::format("subscription {} {}", subscription.index + 1, subscription.text());
  losses.Add(missing, "{} records refused by the encoder or the framework ({})", name);
  losses.Add(counters.dropped.samples, "{} samples, {} records dropped by the full queue of {}",
             counters.dropped.records, name);
  losses.Add(counters.failed.samples, "{} samples, {} records failed to be delivered to {}", counters.failed.records,
             name);
  losses.Add(counters.waiting.samples, "{} samples, {} records still waiting in the queue of {}",
             counters.waiting.records, name);
}

}  // namespace

uint64_t Accounts::notSubscribed() const {
  uint64_t wanted = 0;
  for (const Kind& kind : kKinds) {
    bool subscribed = std::ranges::any_of(
        subscriptions, [&kind](const SubscriptionAccount& account) { return account.subscription.kind == &kind; });
    if (subscribed) wanted += MessagesOf(channel, kind.msgId);
  }
  return Minus(channel.messages, wanted);
}

uint64_t Accounts::passedOver() const {
  return Minus(channel.messages, statsQueue.written + statsQueue.refused + notSubscribed());
}

uint64_t Accounts::leakedBuffers() const {
  const std::pair<uint32_t, uint64_t> kept[] = {
      {kSampleBufferSize, kSampleBuffers}, {kPeriodTableSize, 1}, {kTaskRecordSize, subscriptions.size()}};
  uint64_t explained = statsQueue.depth + eventQueue.depth;
  for (auto [size, count] : kept) {
    auto found = framework.buffersInUse.find(size);
    if (found != framework.buffersInUse.end()) explained += std::min(found->second, count);
  }
  uint64_t inUse = 0;
  for (auto [size, count] : framework.buffersInUse) inUse += count;
  return Minus(inUse, explained);
}

std::vector<std::string> Accounts::Losses() const {
  LossList losses;
  losses.Add(channel.connectionsFaulted, "{} connections closed by the channel for breaking its framing or time limit");
  losses.Add(channel.connectionsRefused, "{} connections refused by the channel: they came from another machine");
  losses.Add(passedOver(),
             "{} messages not queued: empty, or received behind a message of a kind nobody subscribed to");
  losses.Add(statsQueue.refused, "{} messages refused by the full stats queue");
  losses.Add(statsQueue.depth, "{} messages still waiting in the stats queue");
  for (size_t i = 0; i < kKinds.size(); ++i) {
    losses.Add(messages[i].refused, "{} {} messages refused: they break the packed format", kKinds[i].name);
  }
  losses.Add(framework.samplesRefused, "{} samples, {} records refused by the framework, whose delivery was full",
             framework.recordsRefused);
  losses.Add(framework.samplesDropped, "{} samples, {} records dropped by the framework when it stopped",
             framework.recordsDropped);
  losses.Add(unknownSamples, "{} samples for tasks that nobody added");
  for (const SubscriptionAccount& account : subscriptions) AddSubscription(losses, account);
  losses.Add(database.failures, "{} database operations failed");
  losses.Add(leakedBuffers(), "{} buffers leaked");
  std::vector<std::string> lines = losses.Take();
  lines.insert(lines.end(), faults.begin(), faults.end());
  return lines;
}

Accounts CollectAccounts(const std::vector<Subscription>& subscriptions, const Delivery& delivery) {
  Accounts accounts;
  accounts.channel = standin::GetChannelCounters();
  auto queues = standin::Queues();
  accounts.statsQueue = FindQueue(queues, kStatsQueue);
  accounts.eventQueue = FindQueue(queues, kEventQueue);
  std::ranges::transform(kKinds, accounts.messages.begin(),
                         [](const Kind& kind) { return standin::GetMessageCounters(kind.msgId); });
  accounts.framework = standin::GetFrameworkCounters();
  accounts.database = standin::GetDatabaseCounters();
  accounts.periods = standin::ReadPeriodTable();
  for (const Subscription& subscription : subscriptions) {
    SubscriptionCounters counters = delivery.counters(subscription);
    uint64_t unpacked = standin::GetMessageCounters(subscription.kind->msgId).records;
    accounts.subscriptions.push_back({subscription, counters, Minus(unpacked, counters.received.records)});
  }
  accounts.unknownSamples = delivery.unknownSamples();
  for (const std::string& gone : delivery.GoneOutputs()) accounts.faults.push_back(gone);
  return accounts;
}

}  // namespace tarq::host
