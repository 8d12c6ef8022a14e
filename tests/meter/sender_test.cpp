// The way to the host: connections that fail, break, stall and end.
#include "meter/sender.h"

#include "receiver.h"

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;

constexpr size_t kLarge = 8u << 20;  // more than the socket buffers take
constexpr size_t kQuarter = 1 << 14;
constexpr size_t kBacklog = kQuarter * 4 * kKinds.size();

/// A list that can be told from others; with its frame's header as large as `size`.
List Numbered(int number, size_t size = 100) { return List(size - 8, static_cast<uint8_t>(number)); }

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
