#include "host/accounts.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

namespace tarq::host {
namespace {

using standin::MessageOutcomes;

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

std::string NameOf(const Subscription& subscription) {
  return fmt::format("subscription {} {}", subscription.index + 1, subscription.text());
}

/// Gathers the lines of `Losses`: a count of 0 makes none.
class LossList {
 public:
  template <class... Args>
  void Add(const uint64_t& count, fmt::format_string<const uint64_t&, const Args&...> format, const Args&... args) {
    if (count > 0) lines_.push_back(fmt::format(format, count, args...));
  }
  void Add(const SampleCount& count, std::string_view what, const std::string& name) {
    Add(count.samples, "{} samples, {} records {} {}", count.records, what, name);
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

void AddSubscription(LossList& losses, const SubscriptionAccount& account) {
  std::string name = NameOf(account.subscription);
  losses.Add(account.uploads.refused, "refused by the framework, whose delivery was full, for", name);
  losses.Add(account.uploads.dropped, "dropped by the framework when it stopped, for", name);
  losses.Add(account.uploads.waiting, "still waiting in the framework for", name);
  losses.Add(account.output.dropped, "dropped by the full queue of", name);
  losses.Add(account.output.failed, "failed to be delivered to", name);
  losses.Add(account.output.waiting, "still waiting in the queue of", name);
  losses.Add(account.output.unconfirmed, "on a broken connection, which may not have arrived, of", name);
}

/// Gathers the lines of `Imbalances`.
class SumCheck {
 public:
  void Equal(const std::string& whole, const SampleCount& a, const std::string& parts, const SampleCount& b) {
    Equal(whole + ", samples", a.samples, parts, b.samples);
    Equal(whole + ", records", a.records, parts, b.records);
  }
  void Equal(const std::string& whole, uint64_t a, const std::string& parts, uint64_t b) {
    if (a != b) lines_.push_back(fmt::format("{}: {}, but {}: {}", whole, a, parts, b));
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

SampleCount Sum(std::initializer_list<SampleCount> counts) {
  SampleCount sum;
  for (const SampleCount& count : counts) sum.Add(count);
  return sum;
}

SampleCount Total(const standin::UploadCounters& uploads) {
  return Sum({uploads.refused, uploads.delivered, uploads.dropped, uploads.waiting});
}

void CheckMessages(SumCheck& check, const Accounts& accounts) {
  const MessageOutcomes outcomes = accounts.outcomes();
  const auto& queue = accounts.statsQueue;
  uint64_t left = queue.unread + queue.depth;
  for (const auto& messages : accounts.messages) left += messages.unpacked + messages.refused;
  check.Equal("messages received", accounts.channel.messages, "queued, refused, failed or not wanted",
              outcomes.total());
  check.Equal("messages queued", outcomes.queued, "written to the stats queue", queue.written);
  check.Equal("messages refused", outcomes.refused, "refused by the stats queue", queue.refused);
  check.Equal("messages written to the stats queue", queue.written, "unpacked, malformed, released unread or waiting",
              left);
}

/// An encoder's refusal does not say in which encoding, so the sum is over both.
void CheckKind(SumCheck& check, const Accounts& accounts, size_t i) {
  if (accounts.module.notFramed > 0) return;  // of which kind its records were, nothing tells; all kinds are checked
  uint64_t missing = 0;
  for (CodeType encoding : {kCodeTypeJson, kCodeTypeGpb}) {
    missing +=
        accounts.messages[i].records - accounts.encoded(kKinds[i], encoding).value_or(accounts.messages[i].records);
  }
  check.Equal(fmt::format("{} records unpacked and not encoded", kKinds[i].name), missing, "refused by the encoder",
              accounts.module.notEncoded[i]);
}

/// The period table's counts, which the module keeps, against the rest.
void CheckPeriods(SumCheck& check, const Accounts& accounts) {
  const auto& database = accounts.database;
  check.Equal("records unpacked", accounts.recordsUnpacked(), "counted in, forgotten or in no row",
              database.recordsIn + database.recordsForgotten + database.recordsInNoRow);
  if (database.recordsForgotten + database.recordsInNoRow > 0) return;  // so are some of those out
  check.Equal("records encoded", accounts.recordsEncoded(), "counted out", database.recordsOut);
  if (accounts.module.notFramed == 0) check.Equal("records not uploaded", accounts.recordsNotUploaded(), "none", 0);
}

void CheckSubscription(SumCheck& check, const SubscriptionAccount& account) {
  std::string name = NameOf(account.subscription);
  const auto& output = account.output;
  check.Equal(name + ": handed over", account.uploads.delivered, "received by its queue", output.received);
  check.Equal(name + ": received", output.received, "delivered, dropped, failed or waiting",
              Sum({output.delivered, output.dropped, output.failed, output.waiting}));
}

void CheckSamples(SumCheck& check, const Accounts& accounts) {
  SampleCount known;
  for (const auto& [task, uploads] : accounts.framework.byTask) known.Add(Total(uploads));
  check.Equal("uploaded", accounts.framework.uploaded, "refused, delivered, dropped or waiting", known);
  for (const SubscriptionAccount& account : accounts.subscriptions) CheckSubscription(check, account);
}

}  // namespace

SampleCount SubscriptionAccount::encoded() const { return Total(uploads); }

MessageOutcomes Accounts::outcomes() const {
  MessageOutcomes sum = channel.otherIds;
  for (const auto& [msgId, outcomes] : channel.byId) sum.Add(outcomes);
  return sum;
}

uint64_t Accounts::recordsUnpacked() const {
  return std::accumulate(messages.begin(), messages.end(), uint64_t{0},
                         [](uint64_t sum, const auto& kind) { return sum + kind.records; });
}

std::optional<uint64_t> Accounts::encoded(const Kind& kind, CodeType encoding) const {
  std::optional<uint64_t> most;
  for (const SubscriptionAccount& account : subscriptions) {
    if (account.subscription.kind != &kind || account.subscription.encoding != encoding) continue;
    most = std::max(most.value_or(0), account.encoded().records);
  }
  return most;
}

uint64_t Accounts::recordsEncoded() const {
  uint64_t sum = 0;
  for (size_t i = 0; i < kKinds.size(); ++i) {
    for (CodeType encoding : {kCodeTypeJson, kCodeTypeGpb}) {
      if (encoded(kKinds[i], encoding)) sum += messages[i].records;
    }
    sum = Minus(sum, module.notEncoded[i]);
  }
  return sum;
}

uint64_t Accounts::recordsNotUploaded() const {
  uint64_t uploaded = 0;
  for (const Kind& kind : kKinds) {
    for (CodeType encoding : {kCodeTypeJson, kCodeTypeGpb}) uploaded += encoded(kind, encoding).value_or(0);
  }
  return Minus(recordsEncoded(), uploaded);
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
  losses.Add(outcomes().failed, "{} messages not queued: empty, or there was no memory for them");
  losses.Add(statsQueue.refused, "{} messages refused by the full stats queue");
  losses.Add(statsQueue.unread, "{} messages released unread: their kind had no task or no sample buffers");
  losses.Add(statsQueue.depth, "{} messages still waiting in the stats queue");
  losses.Add(eventQueue.refused, "{} subscription changes or cycles refused by the full event queue");
  for (size_t i = 0; i < kKinds.size(); ++i) {
    losses.Add(messages[i].refused, "{} {} messages refused: they break the packed format", kKinds[i].name);
    losses.Add(module.notEncoded[i], "{} times a {} record was refused by an encoder", kKinds[i].name);
  }
  losses.Add(module.notFramed, "{} samples, {} records, could not be framed or handed over", recordsNotUploaded());
  losses.Add(unknownSamples, "{} samples for tasks that nobody added");
  for (const SubscriptionAccount& account : subscriptions) AddSubscription(losses, account);
  losses.Add(database.failures, "{} database operations failed");
  losses.Add(leakedBuffers(), "{} buffers leaked");
  std::vector<std::string> lines = losses.Take();
  lines.insert(lines.end(), faults.begin(), faults.end());
  for (const std::string& imbalance : Imbalances()) lines.push_back("the books do not balance: " + imbalance);
  return lines;
}

std::vector<std::string> Accounts::Imbalances() const {
  SumCheck check;
  CheckMessages(check, *this);
  for (size_t i = 0; i < kKinds.size(); ++i) CheckKind(check, *this, i);
  CheckPeriods(check, *this);
  CheckSamples(check, *this);
  return check.Take();
}

Accounts CollectAccounts(const std::vector<Subscription>& subscriptions, const Delivery& delivery,
                         const FailureLines& lines) {
  Accounts accounts;
  accounts.channel = standin::GetChannelCounters();
  auto queues = standin::Queues();
  accounts.statsQueue = FindQueue(queues, kStatsQueue);
  accounts.eventQueue = FindQueue(queues, kEventQueue);
  std::ranges::transform(kKinds, accounts.messages.begin(),
                         [](const Kind& kind) { return standin::GetMessageCounters(kind.msgId); });
  accounts.module = lines.Get();
  accounts.framework = standin::GetFrameworkCounters();
  accounts.database = standin::GetDatabaseCounters();
  for (const Subscription& subscription : subscriptions) {
    standin::UploadCounters uploads = accounts.framework.byTask[subscription.taskId()];
    accounts.subscriptions.push_back({subscription, uploads, delivery.counters(subscription)});
  }
  accounts.outputs = delivery.outputs();
  accounts.unknownSamples = delivery.unknownSamples();
  for (const std::string& gone : delivery.GoneOutputs()) accounts.faults.push_back(gone);
  return accounts;
}

}  // namespace tarq::host
