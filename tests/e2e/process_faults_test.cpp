// Programs that are killed, stopped or full at the worst moment, and the books that the others keep meanwhile.
#include <gmock/gmock.h>

#include "programs.h"

namespace tarq::test {
namespace {

using testing::HasSubstr;

const std::string kKindNames[] = {"native-ip", "flow", "flow-hop"};

std::string KindLabel(const std::string& kind) { return "kind=\"" + kind + "\""; }

/// What the host unpacked of each kind, beside what was there before, is what the meter sent to it.
void ExpectSameRecords(const Books& host, const std::string& meter, const Books& before = Books("")) {
  for (const std::string& kind : kKindNames) {
    const MeterLine line = MeterLineOf(meter, kind);
    EXPECT_EQ(line.made, line.sent + line.lost) << meter;
    EXPECT_EQ(host.Sum("tarq_records_unpacked_total", {KindLabel(kind)}) -
                  before.Sum("tarq_records_unpacked_total", {KindLabel(kind)}),
              line.sent - line.unconfirmed)
        << kind;
  }
}

/// Waits until all that was received has been delivered, and returns the books.
Books Settled(const HostProcess& host, uint64_t records) {
  EXPECT_TRUE(Eventually([&] {
    const Books books = host.Metrics();
    return books.Sum("tarq_records_unpacked_total") >= records && books.Imbalance().empty() &&
           books.Sum("tarq_queue_depth") == 0 && books.Sum("tarq_subscription_waiting_records") == 0;
  }));
  const Books books = host.Metrics();
  EXPECT_EQ(books.Imbalance(), "");
  return books;
}

/// The bytes that each connection to the port has not got rid of, as the kernel tells them; empty when there are none.
std::string Unsent(const std::string& port) {
  char remote[16];
  snprintf(remote, sizeof remote, ":%04X", std::stoi(port));
  std::istringstream lines(ReadFile("/proc/net/tcp"));
  std::string number, from, to, state, queues, all;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream(line) >> number >> from >> to >> state >> queues;
    if (to.ends_with(remote) && !queues.starts_with("00000000")) all += from + queues + " ";
  }
  return all;
}

/// Whether the host still has a connection to its port to read from.
bool Connected(const std::string& port) {
  char local[16];
  snprintf(local, sizeof local, ":%04X", std::stoi(port));
  std::istringstream lines(ReadFile("/proc/net/tcp"));
  std::string number, from, to, state;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream(line) >> number >> from >> to >> state;
    if (from.ends_with(local) && (state == "01" || state == "08")) return true;
  }
  return false;
}

TEST(ProcessFaults, AHostKilledInMidCycleIsReplacedAndGetsTheMetersBacklog) {
  Scratch scratch;
  const std::string db = scratch.path / "perf.db";
  auto first = std::make_unique<HostProcess>(scratch.path, std::vector<std::string>{"--db", db, "--metrics", "0"});
  const std::string channel = first->Channel(), port = first->Port();
  Process meter({METER, "--synthetic", "20000", "--period", "1", "--linger", "60", "--channel", channel},
                scratch.path / "meter");
  ASSERT_TRUE(Eventually([&] { return !first->process().Out().empty(); })) << "samples come: a cycle is on its way";
  first->process().Signal(SIGKILL);
  first->process().Wait();
  HostProcess second(scratch.path, {"--db", db, "--metrics", "0", "--queue-bytes", "268435456"}, port);
  EXPECT_TRUE(Eventually([&] { return second.Metrics().Sum("tarq_records_unpacked_total") > 0; }));
  meter.Signal(SIGTERM);
  EXPECT_EQ(meter.Wait(), 1) << "what the killed host had is not known";

  const std::string summary = meter.Err();
  uint64_t confirmed = 0;
  for (const std::string& kind : kKindNames) {
    const MeterLine line = MeterLineOf(summary, kind);
    EXPECT_EQ(line.lost, 0u);
    EXPECT_GT(line.unconfirmed, 0u) << kind;
    confirmed += line.sent - line.unconfirmed;
  }
  EXPECT_GT(confirmed, 0u);
  ExpectSameRecords(Settled(second, confirmed), summary);
  EXPECT_EQ(second.Stop(), 0) << second.process().Err();
  const Finished check = RunToEnd({"sqlite3", db, "pragma integrity_check"}, scratch.path / "sqlite");
  EXPECT_EQ(check.out, "ok\n");
}

TEST(ProcessFaults, AMeterKilledInMidFrameCostsItsFrameAndTheNextMeterNothing) {
  Scratch scratch;
  HostProcess host(scratch.path, {"--metrics", "0", "--queue-bytes", "268435456"});
  {
    host.process().Signal(SIGSTOP);  // nobody reads, so the meter is soon stuck in the middle of a frame
    Process meter({METER, "--synthetic", "100000", "--periods", "2", "--period", "1", "--channel", host.Channel()},
                  scratch.path / "killed");
    std::string last;
    int looks = 0;  // that have shown the same
    EXPECT_TRUE(Eventually([&] {
      const std::string now = Unsent(host.Port());
      looks = !now.empty() && now == last ? looks + 1 : 0;
      last = now;
      return looks == 100;
    }));
    meter.Signal(SIGKILL);
    meter.Wait();
  }
  host.process().Signal(SIGCONT);
  EXPECT_TRUE(Eventually([&] { return host.Metrics().Sum("tarq_channel_connections_total", {"faulted"}) > 0; }));
  EXPECT_TRUE(Eventually([&] { return !Connected(host.Port()); })) << "all that the meter had sent is read";
  const Books before = Settled(host, 1);
  const Finished next =
      RunToEnd({METER, "--synthetic", "500", "--periods", "1", "--period", "1", "--channel", host.Channel()},
               scratch.path / "next");
  EXPECT_EQ(next.code, 0) << next.err;
  const Books books = Settled(host, before.Sum("tarq_records_unpacked_total") + 1);
  ExpectSameRecords(books, next.err, before);
  EXPECT_EQ(host.Stop(), 1);
  EXPECT_THAT(host.process().Err(), HasSubstr("connections closed by the channel for breaking its framing"));
  EXPECT_THAT(host.process().Err(), HasSubstr("the books balance"));
}

TEST(ProcessFaults, SigtermUnderFullLoadDeliversWhatWasTaken) {
  Scratch scratch;
  const std::string db = scratch.path / "perf.db";
  HostProcess host(scratch.path, {"--db", db, "--metrics", "0", "--drain-timeout", "60", "--queue-bytes", "268435456"});
  Process meter({METER, "--synthetic", "5000", "--rate", "200000", "--duration", "60", "--quiet", "--linger", "1",
                 "--channel", host.Channel()},
                scratch.path / "meter");
  EXPECT_TRUE(Eventually([&] { return host.Metrics().Sum("tarq_records_unpacked_total") > 100'000; }));
  EXPECT_EQ(host.Stop(), 0) << host.process().Err();
  EXPECT_THAT(host.process().Err(), HasSubstr("the books balance\nnothing was lost and nothing failed"));
  EXPECT_EQ(RunToEnd({"sqlite3", db, "pragma integrity_check"}, scratch.path / "sqlite").out, "ok\n");
  meter.Signal(SIGTERM);
  EXPECT_EQ(meter.Wait(), 1) << "the host left";
}

TEST(Metrics, AreWellFormedAndHealthFollowsTheHost) {
  Scratch scratch;
  HostProcess host(scratch.path, {"--metrics", "0", "--subscribe", "flow:json", "--subscribe", "flow-hop:gpb"});
  const Finished meter = RunToEnd(
      {METER, "--synthetic", "50", "--periods", "1", "--period", "1", "--channel", host.Channel()}, scratch.path / "m");
  EXPECT_EQ(meter.code, 0) << meter.err;
  const Books books = Settled(host, 100);
  EXPECT_EQ(books.Sum("tarq_subscription_records_total", {"delivered"}), 100u);
  EXPECT_GT(books.Sum("tarq_channel_messages_total", {"unwanted"}), 0u) << "native IP";
  const fs::path file = scratch.path / "metrics";
  std::ofstream(file) << host.Get("metrics");
  const Finished check =
      RunToEnd({"sh", "-c", "\"$0\" check metrics < \"$1\"", PROMTOOL, file}, scratch.path / "promtool");
  EXPECT_EQ(check.code, 0) << check.out << check.err;
  EXPECT_EQ(host.Get("healthz"), "ok\n");
  EXPECT_THAT(host.Get("elsewhere"), HasSubstr("/metrics and /healthz"));
  EXPECT_EQ(host.Stop(), 0);
}

}  // namespace
}  // namespace tarq::test
