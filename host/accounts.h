// The books of a run: what came in, what went out, and what was lost where.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/delivery.h"
#include "host/kinds.h"
#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

/// Names of the module's queues.
inline constexpr const char* kStatsQueue = "SavroNtvTarqStatsQue";
inline constexpr const char* kEventQueue = "SAVRO_TARQ_EVENT";

/// What became of one subscription's records.
struct SubscriptionAccount {
  Subscription subscription;
  SubscriptionCounters counters;
  uint64_t missing = 0;  ///< records of its kind that were unpacked and never came as samples
};

/// Everything that the summary tells.
struct Accounts {
  standin::ChannelCounters channel;
  standin::QueueStatus statsQueue{};
  standin::QueueStatus eventQueue{};
  std::array<standin::MessageCounters, kKinds.size()> messages;  ///< in the order of `kKinds`
  standin::FrameworkCounters framework;
  standin::DatabaseCounters database;
  std::vector<ReportPerfRecord> periods;
  std::vector<SubscriptionAccount> subscriptions;
  uint64_t unknownSamples = 0;      ///< samples that belonged to no subscription
  uint64_t droppedLogLines = 0;     ///< not a loss of telemetry
  std::vector<std::string> faults;  ///< what else failed, each in words

  /// Messages of kinds that nobody subscribed to.
  uint64_t notSubscribed() const;
  /// Messages of subscribed kinds that were received and not queued: empty ones, and those that came in one batch
  /// behind a message of a kind that nobody subscribed to.
  uint64_t passedOver() const;
  /// Buffers in use beyond those that the module keeps and those that its queues still held.
  uint64_t leakedBuffers() const;
  /// Each loss and failure with its place, in words; empty when there was none.
  std::vector<std::string> Losses() const;
};

/// Takes the figures of the stand-in and the delivery. To be called once nothing moves any more.
Accounts CollectAccounts(const std::vector<Subscription>& subscriptions, const Delivery& delivery);

}  // namespace tarq::host
