// The way to the host: connections that fail, break, stall and end.
#include "meter/sender.h"

#include <malloc.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <fstream>

#include "receiver.h"

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;

constexpr size_t kLarge = 8u << 20;  // more than the socket buffers take
constexpr size_t kQuarter = 1 << 14;
constexpr size_t kBacklog = kQuarter * 4 * kKinds.size();

/// A list that can be told from others; its frame holds `size` bytes.
List Numbered(int number, size_t size = 100) { return List(size - sizeof(Frame), static_cast<uint8_t>(number)); }

/// What is logged while it lives.
struct Log {
  Log() { spdlog::set_default_logger(std::make_shared<spdlog::logger>("test", sink)); }
  ~Log() { spdlog::set_default_logger(former); }
  size_t Count(const std::string& text) const {
    return static_cast<size_t>(std::ranges::count_if(sink->last_raw(), [&](const auto& line) {
      return std::string_view(line.payload.data(), line.payload.size()).ends_with(text);
    }));
  }
  std::shared_ptr<spdlog::sinks::ringbuffer_sink_mt> sink = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(1000);
  std::shared_ptr<spdlog::logger> former = spdlog::default_logger();
};

void Reset(int socket) {
  const linger atOnce{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  close(socket);
}

struct SenderTest : testing::Test {
  void DriveUntil(const std::function<bool()>& condition) {
    const auto end = Clock::now() + milliseconds{kPatienceMs};
    while (!condition() && Clock::now() < end) sender.Wait(milliseconds{10}, {});
    ASSERT_TRUE(condition());
  }
  void Finish(milliseconds linger = milliseconds{kPatienceMs}) {
    sender.Finish(linger);
    host.Join();
  }
  /// Records of a kind that were sent, lost and unconfirmed.
  auto Records(Kind kind) const {
    const KindCounters& counters = sender.counters(kind);
    return std::tuple(counters.sent.records, counters.lost.records, counters.unconfirmed.records);
  }
  Receiver host;
  Sender sender{host.endpoint, kBacklog};
};

TEST_F(SenderTest, AMessageSentInPartGoesAgainWholeOverTheNextConnection) {
  listen(host.listener, 16);
  sender.Queue(Kind::kFlow, Numbered(1), 2);
  std::vector<int> accepted;
  DriveUntil([&] {
    if (const int connection = host.Accept(0); connection >= 0) accepted.push_back(connection);
    return accepted.size() == kKinds.size() && sender.counters(Kind::kFlow).sent.messages == 1;
  });
  sender.Queue(Kind::kFlow, Numbered(2, kLarge), 3);
  sender.Wait(milliseconds{0}, {});
  sender.Queue(Kind::kFlow, Numbered(3), 4);  // Beyond the backlog, but what is begun is not dropped.
  for (const int connection : accepted) close(connection);
  host.Serve(1);  // The other kinds have nothing to come back for.
  Finish();
  EXPECT_TRUE(host.lists[kFlowMsgId] == (std::vector<List>{Numbered(2, kLarge), Numbered(3)}));
  EXPECT_EQ(Records(Kind::kFlow), std::tuple(9, 0, 2)) << "what went before the break may not have been taken";
}

TEST_F(SenderTest, WhileTheHostIsAwayTheOldestMessagesBeyondTheBacklogAreLost) {
  for (int number = 1; number <= 9; ++number) {
    sender.WaitForRoom(Kind::kFlowHop, kQuarter, -1);  // Returns, as the host is away.
    sender.Queue(Kind::kFlowHop, Numbered(number, kQuarter), 10);
  }
  host.Serve(1);
  Finish();
  const std::vector newest{Numbered(6, kQuarter), Numbered(7, kQuarter), Numbered(8, kQuarter), Numbered(9, kQuarter)};
  EXPECT_TRUE(host.lists[kFlowHopMsgId] == newest);
  EXPECT_EQ(Records(Kind::kFlowHop), std::tuple(40, 50, 0));
}

TEST_F(SenderTest, AHostThatAcceptsOnlyToResetCostsNothingAndIsLoggedOnce) {
  const Log log;
  listen(host.listener, 16);
  for (const Kind kind : kKinds) sender.Queue(kind, Numbered(1), 2);
  std::vector<int> accepted;
  size_t resets = 0;
  const auto start = Clock::now();
  DriveUntil([&] {
    for (const int socket : accepted) Reset(socket), ++resets;  // After the meter had a turn to send.
    accepted.clear();
    for (int socket; (socket = host.Accept(0)) >= 0;) accepted.push_back(socket);
    return resets >= 4 * kKinds.size();
  });
  EXPECT_GE(Clock::now() - start, kFirstRetryPause * 7) << "each pause is twice the one before";
  for (const Kind kind : kKinds) EXPECT_EQ(Records(kind), std::tuple(0, 0, 0));
  host.Serve(3);
  Finish();
  for (const Kind kind : kKinds) EXPECT_EQ(Records(kind), std::tuple(2, 0, 0));
  EXPECT_EQ(std::tuple(log.Count("trying again"), log.Count("flow: connected")), std::tuple(kKinds.size(), 1));
}

TEST(Connection, NeverTakesItselfForTheHost) {
  int low = 0, high = 0;
  ASSERT_TRUE(std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> low >> high);
  SocketAddress address{};
  address.length = sizeof(sockaddr_in);
  auto& host = reinterpret_cast<sockaddr_in&>(address.storage);
  host = {AF_INET, htons(static_cast<uint16_t>(low + 4242)), {htonl(INADDR_LOOPBACK)}, {}};
  Connection connection("here", {address}, 1 << 20);
  connection.Queue({{kFlowMsgId, 100}, List(100), 1});
  auto now = Clock::now();
  // The system goes through its ports, so that within this many attempts one starts from the port that it goes to.
  for (int attempts = 2 * (high - low); attempts != 0 && connection.hasUnsent(); --attempts) {
    now += kLongestRetryPause;
    pollfd interest = connection.Interest();
    poll(&interest, 1, 0);
    connection.Handle(interest.revents, now);
  }
  EXPECT_EQ(connection.counters().sent.messages, 0u);
}

TEST(Connection, HoldsNoMoreMemoryThanItsBacklog) {
  constexpr size_t kBytes = 8 << 20;
  Sender sender({"127.0.0.1", 1}, kBytes * kKinds.size());
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 400; ++i) sender.Queue(Kind::kFlow, List(61440), 1);
  EXPECT_LT(mallinfo2().uordblks - before, kBytes + kBytes / 10);
}

TEST_F(SenderTest, WithTheHostThereRoomIsWaitedForAndNothingIsLost) {
  host.Serve(3);
  for (int i = 0; i < 400 * 3; ++i) {
    sender.WaitForRoom(kKinds[i % 3], 30'000, -1);
    sender.Queue(kKinds[i % 3], Numbered(1, 30'000), 1);
  }
  Finish();
  for (const Kind kind : kKinds) EXPECT_EQ(Records(kind), std::tuple(400, 0, 0));
  for (const uint32_t id : {kFlowMsgId, kFlowHopMsgId, kNativeIpMsgId}) EXPECT_EQ(host.lists[id].size(), 400u);
}

TEST_F(SenderTest, WhatAStalledHostHasNotTakenIsReported) {
  listen(host.listener, 16);  // Nobody accepts, reads or closes.
  sender.Queue(Kind::kFlow, Numbered(1), 2);
  DriveUntil([&] { return sender.counters(Kind::kFlow).sent.messages == 1; });
  sender.Queue(Kind::kFlow, Numbered(2, kLarge), 5);
  Finish(milliseconds{50});
  EXPECT_EQ(Records(Kind::kFlow), std::tuple(2, 5, 2));
}

}  // namespace
}  // namespace tarq::meter
