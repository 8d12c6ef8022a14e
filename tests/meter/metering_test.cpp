// From a capture file to the records that the host gets.
#include <gmock/gmock.h>
#include <pcap/pcap.h>

#include <filesystem>

#include "meter/pipeline.h"
#include "meter/synthetic.h"
#include "receiver.h"

namespace tarq::meter {
namespace {

/// An Ethernet frame with a UDP packet of `bytes` IP bytes, without checksums.
List UdpFrame(int source, int destination, int bytes = 100) {
  List frame{255, 255, 255, 255, 255, 255, 2, 0, 0, 0, 0, 9, 8, 0, 0x45, 0};
  for (const int byte :
       {bytes >> 8,       bytes,      0, 0, 0, 0, 64, 17, 0, 0, 10, 0, 0, 1, 192, 0, 2, 2, source >> 8, source,
        destination >> 8, destination}) {
    frame.push_back(static_cast<uint8_t>(byte));
  }
  frame.resize(14u + static_cast<uint32_t>(bytes));
  return frame;
}

struct Metering : testing::Test {
  Metering() {
    options.pcapFile = testing::TempDir() + "metering" + std::to_string(getpid()) + ".pcap";
    dump = pcap_dump_open(dead, options.pcapFile.c_str());
    options.channel = host.endpoint;
    host.Serve(3);
  }
  ~Metering() override {
    pcap_dump_close(dump);
    pcap_close(dead);
    std::filesystem::remove(options.pcapFile);
  }

  void Write(uint32_t second, uint32_t nanosecond, const List& frame) {
    const auto length = static_cast<bpf_u_int32>(frame.size());
    const pcap_pkthdr header{{second, nanosecond}, length, length};
    pcap_dump(reinterpret_cast<u_char*>(dump), &header, frame.data());
  }
  using Counts = std::vector<std::pair<uint64_t, uint64_t>>;
  /// Period and packets of each flow record, as they came.
  Counts Counted() {
    Counts counted;
    for (const auto& entry : host.Entries<FlowEntry>()) counted.emplace_back(entry.periodId, entry.packetCount);
    return counted;
  }
  bool Run(int cutOff = 0) {
    pcap_dump_flush(dump);
    std::filesystem::resize_file(options.pcapFile, std::filesystem::file_size(options.pcapFile) - cutOff);
    pipeline.emplace(options, stop);
    const bool works = MeterFile(options, Capture::OpenFile(options), *pipeline);
    Finish();
    return works;
  }
  void Finish() {
    pipeline->sender().Finish(std::chrono::seconds{10});
    host.Join();
  }

  pcap_t* dead = pcap_open_dead_with_tstamp_precision(DLT_EN10MB, 65535, PCAP_TSTAMP_PRECISION_NANO);
  pcap_dumper_t* dump;
  Receiver host;
  Options options;
  StopRequest stop{std::chrono::milliseconds{0}};
  std::optional<Pipeline> pipeline;
};

TEST_F(Metering, PacketsCountInThePeriodOfTheirTimeStamp) {
  for (const uint32_t second : {1010, 1019, 1009, 1010, 1041}) Write(second, 999'999'999, UdpFrame(1, 2));
  options.loops = 2;  // 32 s from first to last: the second time is 40 s later.
  EXPECT_TRUE(Run());
  EXPECT_EQ(Counted(), (Counts{{100, 1}, {101, 3}, {104, 2}, {105, 3}, {108, 1}})) << "one record for each period";
  EXPECT_EQ(host.lists[kFlowMsgId].size(), 1u) << "read at full speed, periods share messages";
}

TEST_F(Metering, OnlyAFifthPeriodClosesTheLeastRecentlyUsed) {
  for (const uint32_t second : {100, 130, 120, 110, 100, 140, 109, 130}) Write(second, 0, UdpFrame(1, 2));
  EXPECT_TRUE(Run());
  EXPECT_EQ(Counted(), (Counts{{13, 1}, {12, 1}, {10, 3}, {11, 1}, {13, 1}, {14, 1}}));
}

TEST_F(Metering, EveryTimeStampOfAFileIsCountedOrRefused) {
  for (const uint32_t second : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) Write(second, 0, UdpFrame(1, 2));
  Write(1, 1'000'000'000, UdpFrame(1, 2));
  Write(1, 0xFFFFFFFF, UdpFrame(1, 2));
  options.loops = 2;
  EXPECT_TRUE(Run());
  EXPECT_EQ(Counted(),
            (Counts{{0, 2}, {214748364, 2}, {429496729, 1}, {429496730, 2}, {644245094, 2}, {858993459, 1}}));
  EXPECT_EQ(std::tuple(pipeline->packets().metered, pipeline->packets().malformed), std::tuple(10, 4));
}

TEST_F(Metering, WherePeriodsPassInRealTimeEachIsSentAtItsEnd) {
  options.paceReal = true;
  pipeline.emplace(options, stop);
  for (const uint64_t second : {1000, 1010}) pipeline->Count(SyntheticTraffic(1, 1).Flow(0), {second, 0});
  pipeline->periods().CloseOver(1010);
  pipeline->periods().CloseOver(1020);
  Finish();
  EXPECT_EQ(host.lists[kFlowMsgId].size(), 2u);
}

TEST(Reporter, AMessageWaitsForMoreRecordsOnlySoLong) {
  InterfaceNames names("x", 0, false);
  uint32_t emitted = 0;
  Reporter reporter(10, 61440, names, [&](Kind, List, uint32_t records) { emitted += records; });
  PeriodMeter periods(10, 9, [&](uint64_t id, const FlowTable& flows) { reporter.Report(id, flows); });
  periods.Count(PacketFacts{}, {1000, 0});
  periods.CloseAll();
  reporter.FlushIfDue(Clock::now());
  EXPECT_EQ(emitted, 0u);
  reporter.FlushIfDue(Clock::now() + kLongestHold);
  EXPECT_EQ(emitted, 3u);
}

TEST_F(Metering, AFlowsRecordsOfAllThreeKinds) {
  Write(1000, 1, UdpFrame(40000, 53, 100));
  Write(1003, 7, UdpFrame(40000, 53, 61));
  EXPECT_TRUE(Run());
  ASSERT_EQ(host.Entries<FlowEntry>().size(), 1u);
  const FlowEntry flow = host.Entries<FlowEntry>().at(0);
  const FlowHopEntry hop = host.Entries<FlowHopEntry>().at(0);
  const NativeIpEntry native = host.Entries<NativeIpEntry>().at(0);
  const auto counts = [](const auto& one) {
    return std::tuple<uint64_t, uint64_t, uint64_t, int, int>(one.periodId, one.packetCount, one.byteCount,
                                                              one.timestampSecond, one.timestampNanosecond);
  };
  for (const auto& same : {counts(flow), counts(hop), counts(native)})
    EXPECT_EQ(same, std::tuple(100, 2, 161, 1003, 7));
  const auto expected = std::tuple(0x0A000001, 0xC0000202, 40000, 53, 17, 10);
  EXPECT_EQ(std::tuple(flow.source.words[0], flow.destination.words[0], flow.sourcePort, flow.destinationPort,
                       flow.protocol, flow.interval),
            expected);
  EXPECT_EQ(std::tuple(native.sourceIp, native.destinationIp, native.sourcePort, native.destinationPort,
                       native.protocol, native.interval),
            expected);
  EXPECT_EQ(std::tuple(flow.flowId, flow.sourceMask, flow.destinationMask), std::tuple(hop.flowId, 32, 32));
  EXPECT_EQ(std::tuple(native.directionKind, native.rawDirection, native.startTime), std::tuple(1, 0, 1000));
  const std::string name = std::filesystem::path(options.pcapFile).filename();
  // Texts and MAC of a native IP record stand in the list, at the offsets in place of the pointers.
  const char* list = reinterpret_cast<const char*>(host.lists[kNativeIpMsgId][0].data());
  const auto text = [list](const void* offset) { return std::string(list + reinterpret_cast<uintptr_t>(offset)); };
  EXPECT_EQ(std::tuple(flow.ifName, hop.ifName, text(native.ifName), text(native.appName)),
            std::tuple(name, name, name, "domain"));
  EXPECT_EQ(std::string(list + reinterpret_cast<uintptr_t>(native.clientMac), 6), std::string("\2\0\0\0\0\11", 6));
}

TEST_F(Metering, WhatIsNotMeteredIsCountedAndApplicationsAreNamed) {
  options.maxFlows = 2;
  for (const int port : {123, 40001, 3, 3, 123}) Write(1000, 0, UdpFrame(port, 40000));
  Write(1000, 0, List(60, 0));
  Write(1010, 0, UdpFrame(123, 53));
  Write(1010, 0, UdpFrame(1, 9));
  EXPECT_FALSE(Run(/*cutOff=*/1));
  const PacketCounters& packets = pipeline->packets();
  EXPECT_EQ(std::tuple(packets.seen, packets.metered, packets.notMetered, packets.notIp), std::tuple(7, 4, 2, 1));
  EXPECT_EQ(packets.meteredBytes, 400u);
  std::vector<uint32_t> applications;  // The destination port's service, else the source's.
  for (const auto& entry : host.Entries<NativeIpEntry>()) applications.push_back(entry.appName ? entry.appId : 0);
  EXPECT_THAT(applications, testing::UnorderedElementsAre(123, 0, 53));
}

TEST_F(Metering, ManyFlowsOfBothFamiliesFillMessagesUpToTheirLimit) {
  options.messageBytes = 2048;
  pipeline.emplace(options, stop);
  SyntheticTraffic traffic(1000, 7);
  traffic.Round([&](const PacketFacts& facts) { pipeline->Count(facts, {1000, 0}); });
  pipeline->End();
  Finish();
  EXPECT_EQ(host.lists[kFlowMsgId].size(), 100u) << "10 records of 192 bytes each";
  const auto flows = host.Entries<FlowEntry>();
  EXPECT_EQ(flows.size() + host.Entries<FlowHopEntry>().size() + host.Entries<NativeIpEntry>().size(),
            traffic.RecordsPerRound());
  uint64_t bytes = 0;
  for (const FlowEntry& entry : flows) bytes += entry.byteCount;
  EXPECT_EQ(bytes, pipeline->packets().meteredBytes);
}

}  // namespace
}  // namespace tarq::meter
