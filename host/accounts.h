// The books of a run: what came in, what went out, and what was lost where.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/delivery.h"
#include "host/kinds.h"
#include "host/module_failures.h"
#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

/// Names of the module's queues.
inline constexpr const char* kStatsQueue = "SavroNtvTarqStatsQue";
inline constexpr const char* kEventQueue = "SAVRO_TARQ_EVENT";

/// Where one subscription's samples are: first with the framework, then with its output.
struct SubscriptionAccount {
  Subscription subscription;
  standin::UploadCounters uploads;
  SubscriptionCounters output;

  /// What the module encoded for it.
  standin::SampleCount encoded() const;
};

/// All counts of a run. They are taken one after the other: only once nothing moves do they belong together.
struct Accounts {
  standin::ChannelCounters channel;
  standin::QueueStatus statsQueue{};
  standin::QueueStatus eventQueue{};
  std::array<standin::MessageCounters, kKinds.size()> messages;  ///< in the order of `kKinds`
  ModuleFailures module;
  standin::FrameworkCounters framework;
  standin::DatabaseCounters database;
  std::vector<SubscriptionAccount> subscriptions;
  std::vector<OutputStatus> outputs;
  std::vector<ReportPerfRecord> periods;  ///< only at the end
  uint64_t unknownSamples = 0;            ///< samples that belonged to no subscription
  uint64_t droppedLogLines = 0;           ///< not a loss of telemetry
  std::vector<std::string> faults;        ///< what else failed, each in words

  /// The channel's messages of all identifiers.
  standin::MessageOutcomes outcomes() const;
  uint64_t recordsUnpacked() const;
  /// Records of the kind that were encoded that way; none when nobody subscribed to that.
  std::optional<uint64_t> encoded(const Kind& kind, CodeType encoding) const;
  /// Records that the encoders took, once for each encoding somebody subscribed to.
  uint64_t recordsEncoded() const;
  /// Of these, those that were in no upload: their sample could not be framed or handed over.
  uint64_t recordsNotUploaded() const;
  /// Collection cycles, and those that stopped at the record limit.
  uint64_t cycles() const { return statsQueue.emptyReads + limitHits(); }
  uint64_t limitHits() const { return eventQueue.ownWrites; }
  /// Buffers in use beyond those that the module keeps and those that its queues still held.
  uint64_t leakedBuffers() const;

  /// Each loss and failure with its place, in words; empty when there was none.
  std::vector<std::string> Losses() const;
  /// Each sum that does not come out, in words: something got lost in no count or is in two. To be asked once nothing
  /// moves.
  std::vector<std::string> Imbalances() const;
};

/// Takes the figures of stand-in and delivery, all but `periods`, `droppedLogLines`, and faults that are not an
/// output's.
Accounts CollectAccounts(const std::vector<Subscription>& subscriptions, const Delivery& delivery,
                         const FailureLines& lines);

}  // namespace tarq::host
