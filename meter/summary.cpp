#include "meter/summary.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>

namespace tarq::meter {
namespace {

std::string KindLine(Kind kind, const KindCounters& counters) {
  const auto& [made, sent, lost, unconfirmed] = counters;
  return fmt::format("{:<10}{:>12} {:>8} {:>12} {:>8} {:>12} {:>8} {:>12} {:>8}\n", NameOf(kind), made.records,
                     made.messages, sent.records, sent.messages, lost.records, lost.messages, unconfirmed.records,
                     unconfirmed.messages);
}

}  // namespace

std::string Summary(const PacketCounters& packets, const Reporter& reporter, const Sender& sender) {
  std::string text = fmt::format(
      "packets   {} seen, {} metered, {} beyond --max-flows, {} dropped by the kernel\n"
      "skipped   {}: {} not IP, {} malformed, {} unsupported\n"
      "metered   {} IP bytes, {} periods, {} flows\n",
      packets.seen, packets.metered, packets.notMetered, packets.kernelDrops, packets.skipped(), packets.notIp,
      packets.malformed, packets.unsupported, packets.meteredBytes, reporter.periods(), reporter.flows());
  text += fmt::format("{:<10}{:>12} {:>8} {:>12} {:>8} {:>12} {:>8} {:>12} {:>8}\n", "records in", "made", "messages",
                      "sent", "messages", "lost", "messages", "unconfirmed", "messages");
  for (const Kind kind : kKinds) text += KindLine(kind, sender.counters(kind));
  return text;
}

bool IsComplete(const PacketCounters& packets, const Sender& sender) {
  const bool nothingMissing = std::ranges::all_of(kKinds, [&sender](Kind kind) {
    const KindCounters& counters = sender.counters(kind);
    return counters.lost.messages == 0 && counters.unconfirmed.messages == 0;
  });
  return nothingMissing && packets.kernelDrops == 0 && packets.notMetered == 0;
}

}  // namespace tarq::meter
