// Command lines and subscription texts, good and bad.
#include "host/options.h"

#include <gmock/gmock.h>

#include <tuple>

namespace tarq::host {
namespace {

std::variant<Options, EarlyExit> Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "tarq-host");
  return ParseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, ValuesArriveAndSubscriptionsAreNumbered) {
  auto options = std::get<Options>(Parse({"--port", "0", "--duration", "0.5"}));
  ASSERT_EQ(options.subscriptions().size(), 3u);
  EXPECT_EQ(options.subscriptions()[2].taskId(), 3u);
  EXPECT_EQ(options.subscriptions()[2].tlmId(), 1002u);
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.duration, std::chrono::milliseconds(500));
  setenv(kPortVariable, "1x", 1);
  EXPECT_EQ(Parse({}).index(), 1u);
  setenv(kPortVariable, "", 1);
  EXPECT_EQ(std::get<Options>(Parse({})).port, 58234);
}

TEST(Options, SubscriptionsAndFormatsBelongToTheOutputBeforeThem) {
  auto options = std::get<Options>(Parse({"--subscribe", "flow:json", "--output", "-", "--subscribe=flow:gpb",
                                          "--output", "tcp:[::1]:9000", "--format", "delimited", "--output=unix:/run/x",
                                          "--subscribe", "flow-hop:json", "--output", "[a,b]", "--output={}"}));
  std::vector<std::string> found;
  for (const OutputOptions& output : options.outputs) {
    found.push_back(output.target.place + "|" + output.target.port + "|");
    for (const Subscription& one : output.subscriptions) {
      found.back() += std::to_string(one.taskId()) + " " + one.text() + " ";
    }
  }
  EXPECT_THAT(found,
              testing::ElementsAre("||1 flow:json 2 flow:gpb ", "::1|9000|3 flow:gpb 4 flow-hop:gpb 5 native-ip:gpb ",
                                   "/run/x||6 flow-hop:json ", "[a,b]||7 flow:json 8 flow-hop:json 9 native-ip:json ",
                                   "{}||10 flow:json 11 flow-hop:json 12 native-ip:json "));
  EXPECT_EQ(options.outputs[1].format, Format::kDelimited);
}

TEST(Options, SubscriptionTextsAreRead) {
  const std::string path = "quorin-tarq:tarq/quorin-tarq-statistics:flow-hop-statistics/flow-hop-statistic";
  const std::tuple<std::string, std::string, uint32_t> cases[] = {
      {"flow:json", "flow:json", 10'000},
      {"native-ip:gpb:500ms", "native-ip:gpb", 500},
      {path + ":json", "flow-hop:json", 10'000},
      {path + ":gpb:1h", "flow-hop:gpb", 3'600'000},
      {"flow:gpb:4294967295ms", "flow:gpb", UINT32_MAX},
  };
  for (const auto& [text, kindAndEncoding, intervalMs] : cases) {
    EXPECT_EQ(ParseSubscription(text).text(), kindAndEncoding);
    EXPECT_EQ(ParseSubscription(text).intervalMs, intervalMs) << text;
  }
}

TEST(Options, BadUsageIsCode2AndOneLineThatNamesTheValue) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"--port", "65536", "65536"},
      {"--log-level", "loud", "loud"},
      {"--format", "xml", "xml"},
      {"--duration", "nan", "\"nan\""},
      {"--queue-bytes", "1", "65536"},
      {"--db", "", "--db: an empty name"},
      {"--format=pretty", "--output=/dir", "\"/dir\""},
      {"--nonsense", "stray", "stray"},
      {"--output", "", "\"\""},
      {"--output", "tcp:host", "tcp:HOST:PORT"},
      {"--output", "tcp:host:0", "1 to 65535"},
      {"--output", "tcp::1", "no host"},
      {"--output", "tcp:::1:90", "brackets"},
      {"--output", "unix:", "unix:PATH"},
      {"--output=unix:/x", "--output=unix:/x", "given twice"},
      {"--output=unix:/x", "--format=pretty", "standard output only"},
      {"--format=delimited", "--subscribe=flow:json", "in gpb only"},
      {"--format=lines", "--format=lines", "two --format"},
      {"--subscribe", "flow", "\"flow\": no encoding"},
      {"--subscribe", "flow:json:gpb:1s", "unknown kind \"flow:json\""},
      {"--subscribe", "flow:json:", "bad interval \"\""},
      {"--subscribe", "flow:json:-1s", "bad interval \"-1s\""},
      {"--subscribe", "flow:json:4294967296ms", "at most 4294967295ms"},
      {"--subscribe", "flow:json:5124095576030432h", "bad interval"},  // wraps 64 bits to a small number
  };
  for (auto [option, value, message] : cases) {
    auto parsed = Parse({option, value});
    auto* exit = std::get_if<EarlyExit>(&parsed);
    ASSERT_TRUE(exit) << "accepted: " << value;
    EXPECT_EQ(exit->code, 2);
    EXPECT_THAT(exit->text, testing::HasSubstr(message));
    EXPECT_EQ(exit->text.find('\n'), exit->text.size() - 1) << exit->text;
  }
}

}  // namespace
}  // namespace tarq::host
