#include "host/summary.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <iterator>

namespace tarq::host {
namespace {

using Text = std::back_insert_iterator<std::string>;

void AddIntake(Text out, const Accounts& accounts) {
  const auto& channel = accounts.channel;
  const auto& queue = accounts.statsQueue;
  fmt::format_to(out, "channel        {} messages, {} bytes; {} connections, {} faulted, {} from elsewhere refused\n",
                 channel.messages, channel.bytes, channel.connectionsAccepted, channel.connectionsFaulted,
                 channel.connectionsRefused);
  fmt::format_to(out, "not queued     {} messages of kinds nobody subscribed to, {} passed over\n",
                 accounts.notSubscribed(), accounts.passedOver());
  fmt::format_to(out, "stats queue    {} messages written, {} refused, {} still waiting\n", queue.written,
                 queue.refused, queue.depth);
}

void AddKinds(Text out, const Accounts& accounts) {
  fmt::format_to(out, "\n{:<15}{:>10}{:>10}{:>12}\n", "unpacked", "messages", "refused", "records");
  for (size_t i = 0; i < kKinds.size(); ++i) {
    const auto& messages = accounts.messages[i];
    fmt::format_to(out, "{:<15}{:>10}{:>10}{:>12}\n", kKinds[i].name, messages.unpacked, messages.refused,
                   messages.records);
  }
}

void AddSubscriptions(Text out, const Accounts& accounts) {
  fmt::format_to(out, "\n{:<24}{:>12}{:>12}{:>14}{:>14}{:>14}{:>14}\n", "subscription", "samples", "records",
                 "not encoded", "queue dropped", "not delivered", "still waiting");
  for (const auto& [subscription, counters, missing] : accounts.subscriptions) {
    fmt::format_to(out, "{:<24}{:>12}{:>12}{:>14}{:>14}{:>14}{:>14}\n",
                   fmt::format("{} {}", subscription.index + 1, subscription.text()), counters.delivered.samples,
                   counters.delivered.records, missing, counters.dropped.records, counters.failed.records,
                   counters.waiting.records);
  }
  fmt::format_to(out, "(samples and records: delivered; the other columns count records)\n");
}

void AddPlatform(Text out, const Accounts& accounts) {
  const auto& framework = accounts.framework;
  const auto& database = accounts.database;
  fmt::format_to(out, "\nframework      {} samples accepted, {} refused, {} dropped at the end; {} failure lines\n",
                 framework.samplesAccepted, framework.samplesRefused, framework.samplesDropped, framework.failureLines);
  fmt::format_to(out, "database       {} rows inserted, {} updated; {} operations failed\n", database.inserts,
                 database.updates, database.failures);
  fmt::format_to(out, "buffers        ");
  for (auto [size, count] : framework.buffersInUse) fmt::format_to(out, "{} of {} bytes, ", count, size);
  fmt::format_to(out, "in use at the end; {} leaked\n", accounts.leakedBuffers());
  if (accounts.droppedLogLines > 0) fmt::format_to(out, "log            {} lines dropped\n", accounts.droppedLogLines);
}

std::string TimeText(uint32_t seconds, uint32_t milliseconds) {
  if (seconds == 0) return "-";
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fmt::gmtime(static_cast<time_t>(seconds)), milliseconds);
}

void AddPeriods(Text out, const Accounts& accounts) {
  constexpr const char* kRow = "{:>4}{:>12}{:>12}{:>14}{:>12}{:>14}  {:<23}  {:<23}\n";
  fmt::format_to(out, "\nperiod table\n");
  fmt::format_to(out, kRow, "slot", "period", "records in", "bytes in", "records out", "bytes out", "start (UTC)",
                 "end (UTC)");
  for (const ReportPerfRecord& row : accounts.periods) {
    fmt::format_to(out, kRow, row.history_id, row.period_index, row.in_wux_item_count, row.in_wux_item_byte_count,
                   row.out_item_count, row.out_item_byte_count, TimeText(row.start_time_s, row.start_time_ms),
                   TimeText(row.end_time_s, row.end_time_ms));
  }
}

void AddLosses(Text out, const Accounts& accounts) {
  std::vector<std::string> losses = accounts.Losses();
  fmt::format_to(out, "\n{}\n", losses.empty() ? "nothing was lost and nothing failed" : "lost or failed");
  for (const std::string& loss : losses) fmt::format_to(out, "  {}\n", loss);
}

}  // namespace

std::string SummaryText(const Accounts& accounts) {
  std::string text = "\nsummary\n";
  Text out(text);
  AddIntake(out, accounts);
  AddKinds(out, accounts);
  AddSubscriptions(out, accounts);
  AddPlatform(out, accounts);
  AddPeriods(out, accounts);
  AddLosses(out, accounts);
  return text;
}

}  // namespace tarq::host
