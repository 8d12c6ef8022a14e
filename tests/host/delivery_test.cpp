// From samples to where they arrive, judged by stock parsers, before readers that stall or leave.
#include "host/delivery.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/directory_output.h"
#include "host/json_lines.h"
#include "host/log.h"
#include "host/terminal_text.h"
#include "host/text_output.h"
#include "tarq.pb.h"

namespace tarq::host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

Subscription SubscriptionAt(const std::string& text, uint32_t index = 0) {
  Subscription subscription = ParseSubscription(text);
  subscription.index = index;
  return subscription;
}

standin::Sample SampleFor(const Subscription& subscription, std::string data, uint32_t records = 1) {
  return {subscription.tlmId(), subscription.taskId(), 1'700'000'000'123, true, records, std::move(data)};
}

std::string FlowJson(const std::string& name) {
  return R"({"tarq":{"flow_statistics":{"flow_statistic":[{"flow-id":18446744073709551615,"source-ip":"10.0.0.1",)"
         R"("source-port":443,"destination-ip":"2001:db8:0:0:0:0:0:1","destination-port":5000,"protocol":6,"if-name":")" +
         name + R"(","packet-count":12,"byte-count":3456}]}}})";
}

std::string NativeIpGpb(int records) {
  Tarq message;
  for (int i = 0; i < records; ++i) {
    auto* record = message.mutable_flow_native_ip_statistics()->add_flow_native_ip_statistic();
    record->set_source_ip("10.0.0." + std::to_string(i));
    record->set_destination_ip("10.0.1.1");
    record->set_app_name(
        "do\x1bm\xc2\x9b\xe2\x80\xae\xef\xbb\xbf\xff"
        "\xe4\xbd\xa0");
    record->set_packet_count(7);
  }
  return message.SerializeAsString();
}

TEST(JsonLines, DocumentsAreTakenOverByteForByteAndMalformedOnesStillMakeOneValidLine) {
  Subscription subscription = SubscriptionAt("flow:json", 4);
  EXPECT_EQ(JsonLine(subscription, SampleFor(subscription, FlowJson("eth0"), 37)),
            R"({"path":"quorin-tarq:tarq/quorin-tarq-statistics:flow-statistics/flow-statistic","tlm_id":1004,)"
            R"("task_id":5,"collect_timestamp":1700000000123,"active_report_end":true,"record_count":37,)"
            R"("encoding":"json","data":)" +
                FlowJson("eth0") + "}\n");
  for (std::string name : {"et\"h0", "eth\n0", "eth\xff", "eth\\"}) {
    std::string line = JsonLine(subscription, SampleFor(subscription, FlowJson(name)));
    ASSERT_EQ(line.find('\n'), line.size() - 1) << name;
    auto parsed = nlohmann::json::parse(line);
    EXPECT_EQ(parsed["malformed"], true) << name;
    EXPECT_EQ(parsed["data"].get<std::string>(), FlowJson(name == "eth\xff" ? "eth\xef\xbf\xbd" : name));
  }
}

TEST(JsonLines, GpbIsBase64OfEveryLength) {
  Subscription subscription = SubscriptionAt("native-ip:gpb");
  for (std::string data : {std::string(1, '\0'), std::string("ab"), NativeIpGpb(90)}) {
    auto parsed = nlohmann::json::parse(JsonLine(subscription, SampleFor(subscription, data)));
    std::string text = parsed["data"], decoded(text.size(), '\1');
    EVP_DecodeBlock(reinterpret_cast<uint8_t*>(decoded.data()), reinterpret_cast<const uint8_t*>(text.data()),
                    static_cast<int>(text.size()));
    EXPECT_EQ(decoded.substr(0, data.size()), data);
  }
}

TEST(TerminalText, FirstRecordsOfBothEncodingsAreShown) {
  Subscription flow = SubscriptionAt("flow:json"), native = SubscriptionAt("native-ip:gpb");
  EXPECT_THAT(TerminalText(flow, SampleFor(flow, FlowJson("eth0"))),
              EndsWith("    10.0.0.1:443 -> [2001:db8:0:0:0:0:0:1]:5000 tcp  12 packets, 3456 bytes\n"));
  EXPECT_THAT(
      TerminalText(native, SampleFor(native, NativeIpGpb(5), 5)),
      EndsWith("    10.0.0.2:0 -> 10.0.1.1:0 protocol 0 do?m????\xe4\xbd\xa0  7 packets, 0 bytes\n    and 2 more\n"));
  EXPECT_THAT(TerminalText(flow, SampleFor(flow, FlowJson("e\"\x1b"))), HasSubstr("    malformed JSON: {\"tarq\":{"));
  EXPECT_THAT(TerminalText(native, SampleFor(native, "\xff")), EndsWith("(cannot be decoded)\n"));
}

TEST(DirectoryOutput, KeepsSamplesUntouchedInOrderAndOverwritesNone) {
  EXPECT_THROW(DirectoryOutput("/proc/tarq"), std::runtime_error);
  EXPECT_THROW(DirectoryOutput("/dev/null"), std::runtime_error);
  std::filesystem::path path = testing::TempDir() + "tarq-out-" + std::to_string(getpid());
  Subscription subscriptions[] = {SubscriptionAt("flow-hop:gpb", 1), SubscriptionAt("flow:json")};
  auto write = [&](Output& output, size_t i) {
    auto sample = SampleFor(subscriptions[i % 2], std::to_string(i) + '\0' + "\r\n");
    return output.Write(subscriptions[i % 2], sample).outcome == WriteResult::Outcome::kDelivered;
  };
  DirectoryOutput first(path), second(path);
  for (size_t i = 0; i < 12; ++i) EXPECT_TRUE(write(first, i));
  std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(path), {});
  std::ranges::sort(files);
  ASSERT_EQ(files.size(), 12u);
  EXPECT_EQ(files[0].filename(), "20231114T221320.123Z-000000001-flow-hop-task2.pb");
  for (size_t i = 0; i < files.size(); ++i) {
    std::ifstream stream(files[i], std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), std::to_string(i) + '\0' + "\r\n");
  }
  EXPECT_TRUE(write(second, 0));
  EXPECT_EQ(std::filesystem::remove_all(path), 14u);
  EXPECT_FALSE(write(first, 0)) << "the directory is gone";
}

/// A delivery of two subscriptions into a pipe that one sample fills.
class PipeDelivery : public testing::Test {
 protected:
  PipeDelivery() : delivery_(kMinQueueBytes, [this] { ++gone_; }) {
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(pipe(ends_), 0);
    EXPECT_EQ(fcntl(ends_[1], F_SETPIPE_SZ, 4096), 4096);
    auto text = [](const Subscription&, const standin::Sample& sample) { return sample.data; };
    delivery_.AddOutput(std::make_unique<TextOutput>(ends_[1], "pipe", text), subscriptions_);
  }
  void Take(size_t index, std::string data) { delivery_.Take(SampleFor(subscriptions_[index], std::move(data), 10)); }

  static Deadline Soon() { return std::chrono::steady_clock::now() + std::chrono::seconds(20); }
  int ends_[2];
  std::atomic<int> gone_ = 0;
  std::vector<Subscription> subscriptions_{SubscriptionAt("flow:json", 0), SubscriptionAt("flow:gpb", 1)};
  Delivery delivery_;
};

TEST_F(PipeDelivery, StalledReaderLosesOnlyTheOldestOfItsOwnQueueAndGetsTheRestInOrder) {
  fcntl(ends_[1], F_SETFL, O_NONBLOCK);
  for (char i = 0; i < 60; ++i) Take(0, std::string(4096, static_cast<char>('A' + i)));
  Take(1, "!");
  EXPECT_FALSE(delivery_.WaitIdle(std::chrono::steady_clock::now()));
  std::string text;
  std::thread reader([&] {
    char buffer[4096];
    while (ssize_t n = read(ends_[0], buffer, sizeof(buffer))) text.append(buffer, static_cast<size_t>(n));
  });
  EXPECT_TRUE(delivery_.WaitIdle(Soon()));
  close(ends_[1]);
  reader.join();
  auto counters = delivery_.counters(subscriptions_[0]);
  EXPECT_GT(counters.dropped.samples, 40u);
  EXPECT_EQ(counters.dropped.records + counters.delivered.records, 600u);
  EXPECT_EQ(delivery_.counters(subscriptions_[1]).delivered.records, 10u);
  EXPECT_LT(text.find('!'), 4 * 4096u) << "each subscription has its turn";
  EXPECT_EQ(std::erase(text, '!'), 1u);
  EXPECT_EQ(text.size(), 4096 * counters.delivered.samples);
  EXPECT_TRUE(std::ranges::is_sorted(text));
  EXPECT_EQ(text.back(), 'A' + 59);
}

TEST_F(PipeDelivery, ReaderThatLeftIsReportedOnceAndAllItsSamplesCountAsFailed) {
  close(ends_[0]);
  for (int i = 0; i < 5; ++i) Take(0, "x");
  EXPECT_TRUE(delivery_.WaitIdle(Soon()));
  EXPECT_EQ(delivery_.counters(subscriptions_[0]).failed.records, 50u);
  EXPECT_EQ(gone_, 1);
  EXPECT_THAT(delivery_.GoneOutputs(), testing::ElementsAre("pipe: the reader is gone"));
}

TEST_F(PipeDelivery, WriterThatIsBlockedPastTheEndStillMayLog) {
  StartLog("error");
  Take(0, std::string(8192, 'x'));
  pollfd begun{ends_[0], POLLIN, 0};
  ASSERT_EQ(poll(&begun, 1, 20'000), 1);
  EXPECT_FALSE(delivery_.Stop(std::chrono::steady_clock::now()));
  StopLog(false);
  close(ends_[0]);
  EXPECT_TRUE(delivery_.Stop(Soon()));
  EXPECT_EQ(gone_, 1);
}

}  // namespace
}  // namespace tarq::host
