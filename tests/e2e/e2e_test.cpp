// Packets in, samples out: host, module, stand-in and meter as programs, judged by protobuf, a stock JSON parser and
// SQLite.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <google/protobuf/util/json_util.h>
#include <pcap/pcap.h>

#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "programs.h"
#include "tarq.pb.h"

namespace tarq::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

struct Sums {
  uint64_t packets = 0, bytes = 0;
  bool operator==(const Sums&) const = default;
};
/// "protocol source:port>destination:port" -> counts
using Flows = std::map<std::string, Sums>;

void Put16(std::string& out, unsigned value) { out += static_cast<char>(value >> 8), out += static_cast<char>(value); }

/// An Ethernet capture of random IPv4 and IPv6, TCP and UDP packets over `flows` flows and several periods, with its
/// truth.
Flows WriteCapture(const fs::path& file, int flows, int packets) {
  std::mt19937 random(7);
  pcap_t* dead = pcap_open_dead(DLT_EN10MB, 65535);
  pcap_dumper_t* dump = pcap_dump_open(dead, file.c_str());
  Flows truth;
  for (int i = 0; i < packets; ++i) {
    const unsigned flow = random() % flows, payload = random() % 1000;
    const bool v6 = flow % 3 == 0, tcp = flow % 2 == 0;
    const unsigned transport = (tcp ? 20 : 8) + payload, protocol = tcp ? 6 : 17;
    const unsigned sourcePort = 50'000 + flow, destinationPort = flow % 5 == 0 ? 53 : 40000 + flow;
    std::string frame("\x02\0\0\0\0\x01\x02\0\0\0\0\x02", 12);
    Put16(frame, v6 ? 0x86DD : 0x0800);
    std::string key = std::to_string(protocol) + " ";
    if (v6) {
      Put16(frame, 0x6000), Put16(frame, 0), Put16(frame, transport), frame += static_cast<char>(protocol),
          frame += '\x40';
      for (int side = 0; side < 2; ++side) {
        Put16(frame, 0x2001), Put16(frame, 0xDB8), frame.append(10, '\0'), Put16(frame, flow + 256 * side);
      }
    } else {
      Put16(frame, 0x4500), Put16(frame, 20 + transport), Put16(frame, i), Put16(frame, 0), frame += '\x40',
          frame += static_cast<char>(protocol), Put16(frame, 0);
      for (int side = 0; side < 2; ++side) Put16(frame, 0x0A00 + side), Put16(frame, flow);
    }
    char text[2][64];
    for (unsigned side = 0; side < 2; ++side) {
      if (v6) {
        snprintf(text[side], sizeof(text[side]), "2001:db8:0:0:0:0:0:%x", flow + 256 * side);
      } else {
        snprintf(text[side], sizeof(text[side]), "10.%u.%u.%u", side, flow >> 8, flow & 255);
      }
    }
    key +=
        std::string(text[0]) + ":" + std::to_string(sourcePort) + ">" + text[1] + ":" + std::to_string(destinationPort);
    Put16(frame, sourcePort), Put16(frame, destinationPort), frame.append(transport - 4, '\x50');
    Sums& sums = truth[key];
    ++sums.packets, sums.bytes += transport + (v6 ? 40 : 20);
    pcap_pkthdr header{{1'700'000'000 + i * 40 / packets, 0},
                       static_cast<bpf_u_int32>(frame.size()),
                       static_cast<bpf_u_int32>(frame.size())};
    pcap_dump(reinterpret_cast<u_char*>(dump), &header, reinterpret_cast<const u_char*>(frame.data()));
  }
  pcap_dump_close(dump);
  pcap_close(dead);
  return truth;
}

void Add(Flows& flows, const json& record) {
  const auto number = [&](const char* name) {
    return record.at(name).is_string() ? std::stoull(record.at(name).get<std::string>())
                                       : record.at(name).get<uint64_t>();
  };
  const auto text = [&](const char* name) { return record.at(name).get<std::string>(); };
  Sums& sums =
      flows[std::to_string(number("protocol")) + " " + text("source-ip") + ":" + std::to_string(number("source-port")) +
            ">" + text("destination-ip") + ":" + std::to_string(number("destination-port"))];
  sums.packets += number("packet-count"), sums.bytes += number("byte-count");
}

/// A GPB sample as the JSON that protobuf itself makes of it.
json Decoded(const std::string& gpb) {
  Tarq sample;
  EXPECT_TRUE(sample.ParseFromString(gpb));
  std::string text;
  google::protobuf::util::JsonPrintOptions everything;
  everything.always_print_primitive_fields = true;
  EXPECT_TRUE(google::protobuf::util::MessageToJsonString(sample, &text, everything).ok());
  return json::parse(text);
}

TEST(EndToEnd, PacketAndByteSumsOfEveryFlowSurviveBothEncodings) {
  Scratch scratch;
  const fs::path capture = scratch.path / "flows.pcap", samples = scratch.path / "samples",
                 db = scratch.path / "perf.db";
  const Flows truth = WriteCapture(capture, 300, 20'000);
  Flows truthV4;
  for (const auto& [key, sums] : truth) {
    if (key.find("2001:") == std::string::npos) truthV4[key] = sums;
  }
  HostProcess host(
      scratch.path,
      {"--subscribe", "flow:json:10s", "--subscribe", "flow:gpb", "--subscribe", "flow-hop:json", "--subscribe",
       "flow-hop:gpb", "--subscribe",
       "quorin-tarq:tarq/quorin-tarq-statistics:flow-native-ip-statistics/flow-native-ip-statistic:json:3s",
       "--subscribe", "native-ip:gpb", "--output", samples.string(), "--db", db.string()});
  const Finished meter =
      RunToEnd({METER, "--pcap", capture.string(), "--channel", host.Channel()}, scratch.path / "meter");
  EXPECT_EQ(meter.code, 0) << meter.err;
  EXPECT_EQ(host.Stop(), 0) << host.process().Err();

  std::map<std::string, Flows> sums;
  std::map<std::string, uint64_t> records, hopPackets;
  std::set<std::string> apps;
  fs::path aGpbSample;
  for (const auto& file : fs::directory_iterator(samples)) {
    const bool gpb = file.path().extension() == ".pb";
    if (gpb) aGpbSample = file.path();
    const json document = gpb ? Decoded(ReadFile(file.path())) : json::parse(ReadFile(file.path())).at("tarq");
    for (const auto& [container, list] : document.items()) {
      const std::string name = container + (gpb ? " gpb" : " json");
      for (const json& record : list.begin().value()) {
        ++records[name];
        if (!gpb && record.contains("app-name")) apps.insert(record["app-name"].get<std::string>());
        if (!record.contains("source-ip")) {
          hopPackets[name] +=
              gpb ? std::stoull(record["packet-count"].get<std::string>()) : record["packet-count"].get<uint64_t>();
        } else {
          Add(sums[name], record);
        }
      }
    }
  }
  for (const char* encoding : {" json", " gpb"}) {
    EXPECT_EQ(sums[std::string("flow_statistics") + encoding], truth) << encoding;
    EXPECT_EQ(sums[std::string("flow_native_ip_statistics") + encoding], truthV4) << encoding;
    EXPECT_EQ(hopPackets[std::string("flow_hop_statistics") + encoding], 20'000u) << encoding;
  }
  EXPECT_EQ(apps, std::set<std::string>{"domain"});
  const Finished decoded =
      RunToEnd({"sh", "-c", "protoc --decode=tarq.Tarq -I \"$0\" tarq.proto < \"$1\"", SCHEMA_DIR, aGpbSample.string()},
               scratch.path / "protoc");
  EXPECT_EQ(decoded.code, 0) << decoded.err;
  EXPECT_THAT(decoded.out, HasSubstr("packet_count: "));

  const uint64_t in =
      records["flow_statistics json"] + records["flow_hop_statistics json"] + records["flow_native_ip_statistics json"];
  const Finished rows = RunToEnd(
      {"sqlite3", db.string(),
       "pragma integrity_check; select sum(in_wux_item_count), sum(out_item_count), count(*) from tarq_savro_report_perf"},
      scratch.path / "sqlite");
  EXPECT_EQ(rows.out, "ok\n" + std::to_string(in) + "|" + std::to_string(2 * in) + "|4\n")
      << "four periods of ten seconds";
  EXPECT_THAT(host.process().Err(), HasSubstr("; 0 leaked"));
}

TEST(EndToEnd, LoadOverCycleLimitAndFullBuffersLosesNothing) {
  Scratch scratch;
  HostProcess host(scratch.path,
                   {"--subscribe", "flow:json", "--subscribe", "flow-hop:gpb", "--subscribe", "native-ip:gpb"});
  const Finished meter =
      RunToEnd({METER, "--synthetic", "4000", "--periods", "3", "--period", "1", "--channel", host.Channel()},
               scratch.path / "meter");
  EXPECT_EQ(meter.code, 0) << meter.err;
  EXPECT_EQ(host.Stop(), 0) << host.process().Err();
  std::map<std::string, uint64_t> records;
  std::istringstream lines(host.process().Out());
  for (std::string line; std::getline(lines, line);) {
    const json sample = json::parse(line);
    EXPECT_GT(sample["collect_timestamp"].get<uint64_t>(), 1'700'000'000'000u);
    records[sample["path"]] += sample["record_count"].get<uint64_t>();
  }
  EXPECT_EQ(records["quorin-tarq:tarq/quorin-tarq-statistics:flow-statistics/flow-statistic"], 12'000u);
  EXPECT_EQ(records["quorin-tarq:tarq/quorin-tarq-statistics:flow-hop-statistics/flow-hop-statistic"], 12'000u);
  EXPECT_GT(records["quorin-tarq:tarq/quorin-tarq-statistics:flow-native-ip-statistics/flow-native-ip-statistic"],
            3'000u);
}

TEST(EndToEnd, MeterWaitsForAHostThatIsAwayAndIsServedByTheNextOne) {
  Scratch scratch;
  std::string channel, port;
  {
    HostProcess first(scratch.path, {});
    channel = first.Channel(), port = first.Port();
    EXPECT_EQ(first.Stop(), 0);
  }
  Process meter({METER, "--synthetic", "10", "--periods", "2", "--period", "1", "--channel", channel, "--linger", "30"},
                scratch.path / "meter");
  EXPECT_TRUE(Eventually([&] { return !meter.Err().empty(); }));
  HostProcess second(scratch.path, {}, port);
  EXPECT_EQ(meter.Wait(), 0) << meter.Err();
  EXPECT_EQ(second.Stop(), 0) << second.process().Err();
  EXPECT_THAT(second.process().Out(), HasSubstr("\"record_count\":"));
}

TEST(EndToEnd, WhatCannotStartSaysWhyAndLeavesNothing) {
  Scratch scratch, clean;
  HostProcess running(scratch.path, {});
  const std::string port = running.Port();
  const std::string file = clean.path.string() + "/plain", folder = clean.path.string() + "/a/b";
  const std::vector<std::string> host = {HOST, "--module", TEST_MODULE, "--port", "0", "--duration", "0.1"};
  const auto with = [](std::vector<std::string> command, std::vector<std::string> more) {
    return command.insert(command.end(), more.begin(), more.end()), command;
  };
  const struct {
    std::vector<std::string> command;
    std::string says;
  } kCases[] = {
      {{HOST, "--module", "/nonexistent/libsavro_tarq.so", "--output", folder, "--db", file},
       "/nonexistent/libsavro_tarq.so"},
      {{HOST, "--module", TEST_MODULE, "--port", port, "--output", folder, "--db", file},
       port + " of 127.0.0.1 is taken"},
      {with(host, {"--subscribe", "flows:json"}), "flows"},
      {with(host, {"--subscribe", "flow:xml"}), "xml"},
      {with(host, {"--output", "/proc/none/such"}), "/proc/none/such"},
      {with(host, {"--db", "/nonexistent/perf.db"}), "/nonexistent/perf.db"},
      {{METER, "", "--channel", "h:1"}, "--help"},
      {{METER, "--pcap", file}, file},
      {{METER, "--interface", "nosuchif0"}, "nosuchif0"},
      {{METER, "--pcap", "x", "--synthetic", "3"}, "--help"},
      {{METER, "--synthetic", "3", "--channel", "nowhere"}, "nowhere"},
  };
  for (const auto& c : kCases) {
    const Finished run = RunToEnd(c.command, scratch.path / "refused");
    EXPECT_TRUE(run.code == 2 || run.code == 3) << run.code << " " << c.says;
    EXPECT_THAT(run.err, HasSubstr(c.says));
    EXPECT_TRUE(run.out.empty());
  }
  EXPECT_TRUE(fs::is_empty(clean.path));
  EXPECT_EQ(running.Stop(), 0);
}

}  // namespace
}  // namespace tarq::test
