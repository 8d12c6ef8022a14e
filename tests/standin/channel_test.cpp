#include "platform/channel.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <list>

#include "platform/queue.h"
#include "standin/file_descriptor.h"
#include "standin/packed_list.h"
#include "support.h"

namespace tarq::standin {

using Batch = std::vector<std::string>;  // each message as its identifier and payload
Shared<Batch> g_batches;
void* g_queue = nullptr;  ///< gets an element for each message, where there is one

uint32_t Receive(void*, const MessageDescriptor* messages, uint32_t count) {
  Batch batch;
  for (const auto* one = messages; one < messages + count; ++one) {
    batch.push_back(std::to_string(one->msgId) + ":");
    if (one->payload != nullptr) batch.back().append(static_cast<const char*>(one->payload), one->msgLen);
  }
  g_batches.Add(std::move(batch));
  if (g_queue != nullptr) WUX_QUE_AsyWrite(g_queue, "element", 1);
  return 1;
}

Batch Received() {
  Batch all;
  for (const Batch& batch : g_batches.Get()) all.insert(all.end(), batch.begin(), batch.end());
  return all;
}

std::string Frame(uint32_t msgId, std::string_view payload, uint32_t more = 0) {
  const uint32_t header[] = {msgId, static_cast<uint32_t>(payload.size()) + more};
  return std::string(reinterpret_cast<const char*>(header), sizeof header).append(payload);
}

struct Sender {
  explicit Sender(uint16_t port) {
    const sockaddr_in address{AF_INET, htons(port), {inet_addr("127.0.0.1")}, {}};
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~Sender() { close(fd); }
  bool Send(std::string_view bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
  }
  /// The server's end: 0 for an orderly one, -1 for a reset.
  ssize_t AwaitEnd() { return recv(fd, std::string(1, 0).data(), 1, 0); }
  bool Confirmed() { return shutdown(fd, SHUT_WR), AwaitEnd() == 0; }
  int fd = socket(AF_INET, SOCK_STREAM, 0);
};

struct Channel : testing::Test {
  FailureLines failures;
  RunningLoop loop;
  uint64_t server = 0;
  uint16_t port = (SetChannelPort(0), Start(), ChannelPort());
  ~Channel() override { WUX_CHAN_UCServerDestory(server); }
  uint32_t Start(const char* address = "127.0.0.1") {
    const ChannelConfig config{{inet_addr(address), 0, 0}, {}, 25, loop.id, Receive, {}};
    return WUX_CHAN_UCServer("TEST", 0, &config, &server);
  }
};

TEST_F(Channel, OnlyLoopbackIsListenedOn) {
  const FileDescriptor elsewhere{socket(AF_INET, SOCK_STREAM, 0)};
  const sockaddr_in other{AF_INET, htons(port), {inet_addr("127.0.0.2")}, {}};
  EXPECT_NE(connect(elsewhere.get(), reinterpret_cast<const sockaddr*>(&other), sizeof other), 0);
  EXPECT_EQ(errno, ECONNREFUSED);
  ASSERT_EQ(WUX_CHAN_UCServerDestory(server), 0u);
  for (const char* address : {"0.0.0.0", "192.0.2.1", "255.255.255.255"}) {
    EXPECT_EQ(Start(address), uint32_t{EADDRNOTAVAIL}) << address;
  }
  ASSERT_EQ(Start(), 0u);
}

TEST_F(Channel, FramesArriveWholeWhereverTheyAreCut) {
  const std::string bytes = Frame(1, "first") + Frame(2, "") + Frame(3, std::string(wire::kMaxMessageLength, 'x'));
  const Batch messages = {"1:first", "2:", "3:" + std::string(wire::kMaxMessageLength, 'x')};
  for (size_t cut = 1; cut <= 40; ++cut) {
    g_batches.items.clear();
    Sender sender(port);
    sender.Send(bytes.substr(0, cut));
    const size_t whole = cut >= 21 ? 2 : cut >= 13 ? 1 : 0;
    ASSERT_TRUE(Eventually([&] { return Received().size() == whole; }));
    EXPECT_THAT(g_batches.Get(), SizeIs(whole)) << "one message at a time";
    ASSERT_TRUE(sender.Send(bytes.substr(cut)) && sender.Confirmed()) << cut;
    EXPECT_TRUE(Received() == messages) << cut;
  }
}

TEST_F(Channel, FaultClosesItsConnectionAloneWithOneLine) {
  Sender other(port);
  other.Send(Frame(5, "half").substr(0, 9));
  const std::string tooLong = Frame(1, "kept") + Frame(2, "", wire::kMaxMessageLength + 1) + "rest";
  for (const auto& [bytes, reason] : {std::pair(tooLong, "limit of 1048576"),
                                      {Frame(3, "cut", 10), "middle of a frame"},
                                      {std::string("\3\0\0\0\xFF\xFF\xFF\xFF", 8), "frame of 4294967295 bytes"}}) {
    Sender sender(port);
    sender.Send(bytes);
    EXPECT_FALSE(sender.Confirmed());
    ASSERT_TRUE(
        Eventually([&, text = reason] { return testing::Value(failures.Get(), testing::Contains(HasSubstr(text))); }));
  }
  EXPECT_TRUE(other.Send(Frame(5, "half").substr(9)) && other.Confirmed());
  EXPECT_THAT(Received(), ElementsAre("1:kept", "5:half"));
  EXPECT_THAT(failures.Get(), SizeIs(3));
}

TEST_F(Channel, HalfFrameTimesOutEvenWhenItDribbles) {
  const auto start = std::chrono::steady_clock::now();
  Sender sender(port), idle(port);
  sender.Send(Frame(1, "whole") + Frame(2, "", wire::kMaxMessageLength));
  EXPECT_TRUE(Eventually([&] { return !sender.Send("x"); }, 15s));
  EXPECT_GE(std::chrono::steady_clock::now() - start, kHalfFrameTimeout);
  EXPECT_THAT(failures.Get(), ElementsAre(HasSubstr("not complete after 10 s")));
  EXPECT_TRUE(idle.Confirmed());
}

TEST_F(Channel, ConnectionsBeyondTheLimitWaitForOthersToEndAndLoseNothing) {
  std::list<Sender> senders;
  for (size_t episode = 1; episode <= 2; ++episode) {
    while (senders.size() < kMaxConnections) senders.emplace_back(port);
    ASSERT_TRUE(Eventually([&] { return GetChannelCounters().connectionsAccepted == (episode == 1 ? 64 : 66); }));
    Sender late(port);
    late.Send(Frame(1, std::to_string(episode)));
    EXPECT_TRUE(Eventually([&] { return failures.Get().size() == episode; })) << "one line per episode";
    EXPECT_THAT(Received(), SizeIs(episode - 1));
    EXPECT_TRUE(senders.back().Confirmed());
    senders.pop_back();
    EXPECT_TRUE(late.Confirmed());
    EXPECT_EQ(Received().back(), "1:" + std::to_string(episode));
  }
}

TEST_F(Channel, AThousandConnectionsAtOnceAreAllServedByteByByte) {
  struct Peer {
    FileDescriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)};
    std::string left;
    bool done = false;
  };
  std::vector<Peer> peers(1000);
  const sockaddr_in address{AF_INET, htons(port), {inet_addr("127.0.0.1")}, {}};
  for (size_t i = 0; i < peers.size(); ++i) {
    connect(peers[i].socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    peers[i].left = Frame(static_cast<uint32_t>(i), "x");
  }
  const auto step = [](Peer& peer) {
    char byte;
    if (!peer.left.empty() && send(peer.socket.get(), peer.left.data(), 1, MSG_NOSIGNAL) == 1) {
      peer.left.erase(0, 1);
      if (peer.left.empty()) shutdown(peer.socket.get(), SHUT_WR);
    }
    peer.done = peer.left.empty() && recv(peer.socket.get(), &byte, 1, 0) == 0;
  };
  EXPECT_TRUE(Eventually(
      [&] {
        for (Peer& peer : peers) peer.done ? void() : step(peer);
        return std::ranges::all_of(peers, &Peer::done);
      },
      50s));
  EXPECT_THAT(Received(), SizeIs(peers.size()));
  const ChannelCounters counters = GetChannelCounters();
  EXPECT_EQ(counters.connectionsAccepted, peers.size());
  EXPECT_LE(counters.byId.size(), kMaxCountedIds) << "however many identifiers come";
  EXPECT_EQ(counters.otherIds.unwanted, peers.size() - (counters.byId.size() - 3));
}

TEST_F(Channel, ANearlyFullQueueHoldsSendersBackUntilItHasDrained) {
  const QueueMonitor monitor{8, 2, loop.id, {}};
  void* queue = WUX_QUE_CreateNew("full", 6, 10, 8);
  ASSERT_EQ(WUX_QUE_MonitorReg(queue, &monitor, [](uint32_t) { return 0u; }), 0u);
  const uint64_t elements[8] = {};
  Sender before(port);
  ASSERT_TRUE(Eventually([] { return GetChannelCounters().connectionsAccepted == 1; }));
  ASSERT_EQ(WUX_QUE_AsyWrite(queue, elements, 8), 8);
  Sender after(port);
  for (Sender* sender : {&before, &after}) sender->Send(Frame(1, "later"));
  ASSERT_TRUE(Eventually([] { return GetChannelCounters().connectionsAccepted == 2; }));
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(PassLoops(10s));
  EXPECT_THAT(Received(), SizeIs(0));
  uint64_t taken[6];
  ASSERT_EQ(WUX_QUE_AsyRead(queue, taken, 6), 6);
  EXPECT_TRUE(before.Confirmed() && after.Confirmed());
  EXPECT_THAT(Received(), ElementsAre("1:later", "1:later"));
  EXPECT_EQ(WUX_QUE_Destory(queue), 0u);
}

TEST_F(Channel, StoppingIntakeHandsOverWhatHasArrived) {
  Sender busy(port);
  busy.Send(Frame(1, "a") + Frame(2, "b") + "half");
  EXPECT_TRUE(StopChannelIntake(10s));
  EXPECT_THAT(Received(), ElementsAre("1:a", "2:b"));
  EXPECT_FALSE(busy.Confirmed()) << "what came too late must not look confirmed";
}

TEST_F(Channel, StoppingIntakeWaitsForANearlyFullQueueAndRefusesNothing) {
  const QueueMonitor monitor{80, 20, loop.id, {}};
  g_queue = WUX_QUE_CreateNew("full", 6, 1000, 8);
  ASSERT_EQ(WUX_QUE_MonitorReg(g_queue, &monitor, [](uint32_t) { return 0u; }), 0u);
  std::string frames;
  for (int i = 0; i < 300; ++i) frames += Frame(1, std::string(160, 'x'));
  std::list<Sender> senders;
  while (senders.size() < 10) EXPECT_TRUE(senders.emplace_back(port).Send(frames));
  std::jthread reader([](std::stop_token stop) {
    for (uint64_t elements[512]; !stop.stop_requested();) {
      if (WUX_QUE_AsyRead(g_queue, elements, 512) <= 0) std::this_thread::sleep_for(1ms);
    }
  });
  EXPECT_TRUE(StopChannelIntake(20s));
  EXPECT_EQ(Received().size(), 3'000u) << "more than the queue holds";
  for (const QueueStatus& queue : Queues()) EXPECT_EQ(queue.refused, 0u) << queue.name;
  reader.request_stop();
  reader.join();
  EXPECT_EQ(WUX_QUE_Destory(std::exchange(g_queue, nullptr)), 0u);
}

TEST_F(Channel, DestroyingWhileMessagesComeEndsAllCallbacksAndFreesThePort) {
  SetChannelPort(port);
  for (int round = 0; round < 20; ++round) {
    std::jthread flood([this, sender = std::make_shared<Sender>(port)] {
      while (sender->Send(Frame(9, "payload")))
        ;
    });
    ASSERT_TRUE(Eventually([&] { return g_batches.Get().size() > 0; }));
    ASSERT_EQ(WUX_CHAN_UCServerDestory(server), 0u);
    const size_t after = g_batches.Get().size();
    flood.join();
    EXPECT_THAT(g_batches.Get(), SizeIs(after));
    g_batches.items.clear();
    ASSERT_EQ(Start(), 0u);
  }
  EXPECT_EQ(Start(), uint32_t{EADDRINUSE});
  EXPECT_THAT(failures.Get(), ElementsAre(HasSubstr(std::to_string(port) + ": Address already in use")));
}
}  // namespace tarq::standin
