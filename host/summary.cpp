#include "host/summary.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <iterator>

namespace tarq::host {
namespace {

using Text = std::back_insert_iterator<std::string>;

void AddIntake(Text out, const Accounts& accounts) {
  const auto& channel = accounts.channel;
  const auto outcomes = accounts.outcomes();
  const auto& queue = accounts.statsQueue;
  fmt::format_to(out, "channel        {} messages, {} bytes; {} connections, {} faulted, {} from elsewhere refused\n",
                 channel.messages, channel.bytes, channel.connectionsAccepted, channel.connectionsFaulted,
                 channel.connectionsRefused);
  fmt::format_to(out, "  of these     {} queued, {} refused by the full queue, {} failed, {} not subscribed to\n",
                 outcomes.queued, outcomes.refused, outcomes.failed, outcomes.unwanted);
  fmt::format_to(out, "stats queue    {} messages written, {} released unread, {} still waiting; held back {} times\n",
                 queue.written, queue.unread, queue.depth, queue.stopEvents);
  fmt::format_to(out, "cycles         {}, {} of them ended by the record limit; the longest event took {:.1f} ms\n",
                 accounts.cycles(), accounts.limitHits(),
                 std::chrono::duration<double, std::milli>(accounts.eventQueue.longestCallback).count());
}

/// A kind's records in one encoding; a dash where nobody subscribed to it.
std::string EncodedText(const Accounts& accounts, const Kind& kind, CodeType encoding) {
  auto records = accounts.encoded(kind, encoding);
  return records ? std::to_string(*records) : "-";
}

void AddKinds(Text out, const Accounts& accounts) {
  constexpr const char* kRow = "{:<15}{:>10}{:>11}{:>12}{:>12}{:>12}{:>13}\n";
  fmt::format_to(out, "\n");
  fmt::format_to(out, kRow, "unpacked", "messages", "malformed", "records", "json", "gpb", "not encoded");
  for (size_t i = 0; i < kKinds.size(); ++i) {
    const auto& messages = accounts.messages[i];
    fmt::format_to(out, kRow, kKinds[i].name, messages.unpacked, messages.refused, messages.records,
                   EncodedText(accounts, kKinds[i], kCodeTypeJson), EncodedText(accounts, kKinds[i], kCodeTypeGpb),
                   accounts.module.notEncoded[i]);
  }
}

void AddSubscriptions(Text out, const Accounts& accounts) {
  constexpr const char* kRow = "{:<24}{:>12}{:>12}{:>12}{:>14}{:>14}{:>14}{:>14}\n";
  fmt::format_to(out, "\n");
  fmt::format_to(out, kRow, "subscription", "encoded", "samples", "records", "not accepted", "queue dropped",
                 "not delivered", "still waiting");
  for (const SubscriptionAccount& account : accounts.subscriptions) {
    const auto& [subscription, uploads, output] = account;
    fmt::format_to(out, kRow, fmt::format("{} {}", subscription.index + 1, subscription.text()),
                   account.encoded().records, output.delivered.samples, output.delivered.records,
                   uploads.refused.records + uploads.dropped.records, output.dropped.records, output.failed.records,
                   output.waiting.records + uploads.waiting.records);
  }
  fmt::format_to(out, "(samples and records: delivered; the other columns count records)\n");
}

void AddPlatform(Text out, const Accounts& accounts) {
  const auto& framework = accounts.framework;
  const auto& database = accounts.database;
  fmt::format_to(out, "\nframework      {} samples uploaded; {} failure lines\n", framework.uploaded.samples,
                 framework.failureLines);
  fmt::format_to(out, "database       {} rows inserted, {} updated; {} operations failed\n", database.inserts,
                 database.updates, database.failures);
  fmt::format_to(out, "  records      {} counted in, {} out; {} unpacked ones forgotten with a displaced period\n",
                 database.recordsIn, database.recordsOut, database.recordsForgotten);
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
  if (accounts.Imbalances().empty()) fmt::format_to(out, "\nthe books balance\n");
  fmt::format_to(out, "{}\n", losses.empty() ? "nothing was lost and nothing failed" : "lost or failed");
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
