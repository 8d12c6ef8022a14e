// Subscribers on sockets that read, stall, leave and come back; and the books of each.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <poll.h>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <numeric>

#include "host/delimited.h"
#include "host/delivery.h"
#include "host/directory_output.h"
#include "host/json_lines.h"
#include "host/stream_output.h"
#include "tarq.pb.h"

namespace tarq::host {
namespace {

using namespace std::chrono_literals;

Deadline In(std::chrono::milliseconds time) { return std::chrono::steady_clock::now() + time; }

/// A subscriber's socket, which takes one connection at a time.
class Listener {
 public:
  explicit Listener(bool tcp) : tcp_(tcp), path_(testing::TempDir() + "tarq-stream-" + std::to_string(getpid())) {
    Open();
  }
  ~Listener() { Close(), Leave(); }

  void Open() {
    listener_ = socket(tcp_ ? AF_INET : AF_UNIX, SOCK_STREAM, 0);
    const int yes = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{AF_INET, htons(port_), {htonl(INADDR_LOOPBACK)}, {}};
    sockaddr_un local{AF_UNIX, ""};
    path_.copy(local.sun_path, sizeof local.sun_path - 1);
    std::filesystem::remove(path_);
    socklen_t size = sizeof address;
    const auto bound = tcp_ ? bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address)
                            : bind(listener_, reinterpret_cast<sockaddr*>(&local), sizeof local);
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    if (tcp_) getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), port_ = ntohs(address.sin_port);
  }
  void Close() { close(std::exchange(listener_, -1)); }
  void Accept() { connection_ = accept(listener_, nullptr, nullptr); }
  void Leave() {
    if (connection_ >= 0) close(std::exchange(connection_, -1));
  }
  /// Reads until there are so many bytes, or until the end. What is missing then was not sent in time.
  std::string Read(size_t bytes = SIZE_MAX) {
    std::string read;
    std::vector<char> buffer(1 << 16);
    pollfd ready{connection_, POLLIN, 0};
    while (read.size() < bytes && poll(&ready, 1, 20'000) == 1) {
      const ssize_t count = recv(connection_, buffer.data(), std::min(buffer.size(), bytes - read.size()), 0);
      if (count <= 0) break;
      read.append(buffer.data(), static_cast<size_t>(count));
    }
    return read;
  }
  std::string target() const { return tcp_ ? "tcp:127.0.0.1:" + std::to_string(port_) : "unix:" + path_; }

 private:
  bool tcp_;
  std::string path_;
  uint16_t port_ = 0;
  int listener_ = -1, connection_ = -1;
};

/// A sample of one record whose flow has that number, with a name so long that few samples fill the sockets.
standin::Sample Numbered(const Subscription& subscription, uint64_t number, size_t nameLength = 20'000) {
  Tarq message;
  auto* flow = message.mutable_flow_statistics()->add_flow_statistic();
  flow->set_flow_id(number);
  flow->set_if_name(std::string(nameLength, 'x'));
  std::string data = message.SerializeAsString();
  if (subscription.encoding == kCodeTypeJson) {
    data = R"({"id":)" + std::to_string(number) + R"(,"name":")" + std::string(nameLength, 'x') + "\"}";
  }
  return {subscription.tlmId(), subscription.taskId(), 1'700'000'000'000, false, 1, data};
}

/// The numbers of the samples in a stream, as stock parsers read it; a sample in part ends it.
std::vector<uint64_t> NumbersIn(const std::string& stream, bool delimited) {
  std::vector<uint64_t> numbers;
  google::protobuf::io::ArrayInputStream input(stream.data(), static_cast<int>(stream.size()));
  bool clean = false;
  for (Tarq message; delimited && google::protobuf::util::ParseDelimitedFromZeroCopyStream(&message, &input, &clean);) {
    numbers.push_back(message.flow_statistics().flow_statistic(0).flow_id());
    message.Clear();  // the parser merges
  }
  std::istringstream lines(delimited ? "" : stream);
  for (std::string line; std::getline(lines, line) && !lines.eof();) {
    numbers.push_back(nlohmann::json::parse(line)["data"]["id"]);
  }
  return numbers;
}

std::vector<uint64_t> From(uint64_t first, uint64_t count) {
  std::vector<uint64_t> numbers(count);
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

struct Case {
  bool tcp, delimited;
};

class Stream : public testing::TestWithParam<Case> {
 protected:
  Stream() : subscription_(ParseSubscription(GetParam().delimited ? "flow:gpb" : "flow:json")) {
    spdlog::default_logger_raw();  // made before there are threads
    delivery_.AddOutput(MakeStream(listener_), {subscription_});
  }
  std::unique_ptr<StreamOutput> MakeStream(const Listener& listener) {
    return std::make_unique<StreamOutput>(ParseTarget(listener.target()), GetParam().delimited ? Delimited : JsonLine);
  }
  void Take(uint64_t first, uint64_t count) {
    for (uint64_t number : From(first, count)) delivery_.Take(Numbered(subscription_, number));
  }
  /// Goes on from `next` until the subscriber, who does not read, takes nothing more; the number that comes next.
  uint64_t TakeUntilStalled(uint64_t next) {
    const auto writtenSoon = [this] { return Count().waiting.samples == 0; };
    do {
      Take(next++, 1);
    } while (Eventually(writtenSoon, 1s));
    return next;
  }
  std::vector<uint64_t> ReadNumbers(size_t samples = SIZE_MAX) {
    const auto one = Numbered(subscription_, kFirst);
    const size_t length = (GetParam().delimited ? Delimited(subscription_, one) : JsonLine(subscription_, one)).size();
    return NumbersIn(listener_.Read(samples == SIZE_MAX ? samples : samples * length), GetParam().delimited);
  }
  SubscriptionCounters Count() {
    const SubscriptionCounters all = delivery_.counters(subscription_);
    EXPECT_EQ(all.received.samples,
              all.delivered.samples + all.dropped.samples + all.failed.samples + all.waiting.samples);
    return all;
  }
  template <class Condition>
  static bool Eventually(Condition condition, std::chrono::milliseconds bound = 20s) {
    for (const Deadline end = In(bound); !condition() && std::chrono::steady_clock::now() < end;) {
      std::this_thread::sleep_for(1ms);
    }
    return condition();
  }

  static constexpr uint64_t kFirst = 100'000;  ///< all numbers take as many bytes
  Listener listener_{GetParam().tcp};
  Subscription subscription_;
  static constexpr size_t kQueueBytes = 1 << 20;
  Delivery delivery_{kQueueBytes, [] {}};
};
INSTANTIATE_TEST_SUITE_P(Targets, Stream,
                         testing::Values(Case{true, false}, Case{true, true}, Case{false, false}, Case{false, true}),
                         [](const auto& test) {
                           return std::string(test.param.tcp ? "Tcp" : "Unix") +
                                  (test.param.delimited ? "Delimited" : "Lines");
                         });

TEST_P(Stream, AReaderGetsEverySampleInOrderUpToTheEnd) {
  Take(kFirst, 30);
  listener_.Accept();
  EXPECT_EQ(ReadNumbers(30), From(kFirst, 30));
  Take(kFirst + 30, 5);
  auto reader = std::async(std::launch::async, [this] { return ReadNumbers(); });
  EXPECT_TRUE(delivery_.WaitIdle(In(20s)) && delivery_.Stop(In(20s)));
  EXPECT_EQ(reader.get(), From(kFirst + 30, 5));
  EXPECT_EQ(Count().delivered.samples, 35u);
  EXPECT_EQ(Count().unconfirmed.samples, 0u);
}

TEST_P(Stream, AStalledReaderLosesItsOldestAloneAndGetsTheRestInOrder) {
  Subscription other = ParseSubscription("flow-hop:gpb");
  other.index = 1;
  const std::string path = testing::TempDir() + "tarq-other-" + std::to_string(getpid());
  delivery_.AddOutput(std::make_unique<DirectoryOutput>(path), {other});
  listener_.Accept();
  uint64_t next = TakeUntilStalled(kFirst), others = 0;
  while (Count().dropped.samples < 20) {
    Take(next++, 1);
    delivery_.Take(Numbered(other, ++others, 10));
    ASSERT_LE(Count().waiting.samples, kQueueBytes / 20'000 + 1) << "the queue keeps its bound";
    ASSERT_TRUE(Eventually([&] { return delivery_.counters(other).delivered.samples == others; })) << "nobody waits";
  }
  const SubscriptionCounters stalled = Count();
  const uint64_t queued = stalled.waiting.samples - 1;  // one is being written
  std::vector<uint64_t> kept = From(kFirst, stalled.delivered.samples + 1), rest = From(next - queued, queued);
  kept.insert(kept.end(), rest.begin(), rest.end());
  EXPECT_EQ(ReadNumbers(kept.size()), kept);
  EXPECT_TRUE(delivery_.WaitIdle(In(20s)) && delivery_.Stop(In(20s)));
  EXPECT_EQ(Count().delivered.samples, kept.size());
  EXPECT_EQ(Count().dropped.samples, next - kFirst - kept.size());
  std::filesystem::remove_all(path);
}

TEST_P(Stream, AReaderThatLeavesAndComesBackBeginsWithAWholeSampleAndLosesNothingSilently) {
  listener_.Accept();
  Take(kFirst, 3);
  EXPECT_EQ(ReadNumbers(3), From(kFirst, 3));
  uint64_t next = TakeUntilStalled(kFirst + 3);  // the last one is out in part
  Take(next++, 1);
  listener_.Close();
  listener_.Leave();
  ASSERT_TRUE(Eventually([&] { return delivery_.outputs()[0].link.losses == 1; }));
  Take(next++, 1);
  const uint64_t left = Count().waiting.samples;
  EXPECT_EQ(left, 3u);
  listener_.Open();
  listener_.Accept();
  EXPECT_EQ(ReadNumbers(left), From(next - left, left));
  EXPECT_TRUE(delivery_.WaitIdle(In(20s)) && delivery_.Stop(In(20s)));
  EXPECT_EQ(Count().delivered.samples, next - kFirst);
  EXPECT_GT(Count().unconfirmed.samples, 0u);
  EXPECT_LE(Count().unconfirmed.samples, next - kFirst - left) << "what came over the second connection is certain";
  EXPECT_EQ(delivery_.outputs()[0].link.connects, 2u);
}

TEST_P(Stream, WhatAReaderHadNotReadWhenItLeftIsInDoubtAndNothingElse) {
  uint64_t next = kFirst, losses = 0;
  const auto takeAndLeave = [&](bool read) {
    listener_.Accept();
    Take(next, 3);
    next += 3;
    if (read) {
      EXPECT_EQ(ReadNumbers(3), From(next - 3, 3));
    }
    ASSERT_TRUE(Eventually([&] { return Count().delivered.samples == next - kFirst; }));
    listener_.Leave();
    ASSERT_TRUE(Eventually([&] { return delivery_.outputs()[0].link.losses == losses + 1; }));
    ++losses;
  };
  takeAndLeave(true);
  EXPECT_EQ(Count().unconfirmed.samples, 0u);
  takeAndLeave(false);
  EXPECT_EQ(Count().unconfirmed.samples, 3u);
  takeAndLeave(true);
  listener_.Accept();
  Take(next, 2);
  EXPECT_TRUE(delivery_.WaitIdle(In(20s)));
  listener_.Leave();
  EXPECT_TRUE(delivery_.Stop(In(20s)));
  EXPECT_EQ(Count().unconfirmed.samples, 5u);
}

TEST_P(Stream, TheEndComesInTimeBesideASubscriberThatIsStalledOrAway) {
  listener_.Accept();
  Subscription away = ParseSubscription("flow-hop:gpb");
  away.index = 1;
  Listener gone(true);
  delivery_.AddOutput(MakeStream(gone), {away});
  gone.Close();
  delivery_.Take(Numbered(away, 1));
  delivery_.Take(Numbered(away, 2));
  Take(TakeUntilStalled(kFirst), 2);
  EXPECT_TRUE(delivery_.Stop(In(20s))) << "no thread is left behind";
  EXPECT_EQ(Count().failed.samples, 1u) << "the one in hand";
  EXPECT_EQ(Count().waiting.samples, 2u);
  EXPECT_EQ(delivery_.counters(away).failed.samples, 1u);
  EXPECT_EQ(delivery_.counters(away).waiting.samples, 1u);
}

}  // namespace
}  // namespace tarq::host
