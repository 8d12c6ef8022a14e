// Records encoded per second, by the module and, beside it in the same run, by stock libraries from the same record:
// protobuf's generated code for GPB, nlohmann's for JSON. What counts is the ratio.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "encode/encoders.h"
#include "tarq.pb.h"

namespace tarq {
namespace {

/// A usual IPv4 flow: counts of a few digits, an interface name, no VPN.
FlowEntry MakeFlow() {
  FlowEntry e{};
  e.flowId = 0x1122334455667788;
  e.source.words[0] = 0xC0A80001;
  e.destination.words[0] = 0x0A000002;
  e.sourcePort = 51234;
  e.destinationPort = 443;
  std::strcpy(e.ifName, "GigabitEthernet0/1/0");
  e.ifIndex = 7;
  e.protocol = 6;
  e.sourceMask = e.destinationMask = 32;
  e.interval = 10;
  e.periodId = 179538500;
  e.packetCount = 1234;
  e.byteCount = 987654;
  e.timestampSecond = 1795385000;
  e.timestampNanosecond = 123456789;
  return e;
}

std::string Ipv4(uint32_t a) {
  char text[16];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", a >> 24, a >> 16 & 255, a >> 8 & 255, a & 255);
  return text;
}

void Count(benchmark::State& state, size_t bytes) {
  state.SetItemsProcessed(state.iterations());
  state.counters["bytes"] = static_cast<double>(bytes);
}

void GpbModule(benchmark::State& state) {
  const FlowEntry entry = MakeFlow();
  uint8_t out[2048];
  int32_t size = 0;
  for (auto _ : state) benchmark::DoNotOptimize(size = SAVRO_TARQ_FLOW_GPB_EncodeMsg(&entry, out, sizeof out));
  Count(state, static_cast<size_t>(size));
}

void GpbStock(benchmark::State& state) {
  const FlowEntry entry = MakeFlow();
  std::string out;
  for (auto _ : state) {
    Tarq sample;
    FlowStatistic& r = *sample.mutable_flow_statistics()->add_flow_statistic();
    r.set_flow_id(entry.flowId), r.set_if_index(entry.ifIndex), r.set_if_name(entry.ifName);
    r.set_interval(entry.interval), r.set_source_ip(Ipv4(entry.source.words[0]));
    r.set_destination_ip(Ipv4(entry.destination.words[0])), r.set_source_mask(32), r.set_destination_mask(32);
    r.set_protocol(entry.protocol), r.set_source_port(entry.sourcePort), r.set_destination_port(entry.destinationPort);
    r.set_period_id(entry.periodId), r.set_packet_count(entry.packetCount), r.set_byte_count(entry.byteCount);
    r.set_timestamp_second(entry.timestampSecond), r.set_timestamp_nanosecond(entry.timestampNanosecond);
    sample.SerializeToString(&out);
    benchmark::DoNotOptimize(out);
  }
  Count(state, out.size());
}

void JsonModule(benchmark::State& state) {
  const FlowEntry entry = MakeFlow();
  char out[2048];
  int32_t size = 0;
  for (auto _ : state) benchmark::DoNotOptimize(size = SAVRO_TARQ_FLOW_JSON_EncodeMsg(&entry, out, sizeof out));
  Count(state, static_cast<size_t>(size));
}

void JsonStock(benchmark::State& state) {
  const FlowEntry e = MakeFlow();
  std::string out;
  for (auto _ : state) {
    // clang-format off
    const nlohmann::ordered_json record = {
        {"flow-id", e.flowId}, {"direction", e.direction}, {"address-family", e.addressFamily},
        {"source-ip", Ipv4(e.source.words[0])}, {"source-mask", e.sourceMask},
        {"destination-ip", Ipv4(e.destination.words[0])}, {"destination-mask", e.destinationMask},
        {"source-port", e.sourcePort}, {"destination-port", e.destinationPort}, {"protocol", e.protocol},
        {"vpn-name", e.vpnName}, {"if-index", e.ifIndex}, {"if-name", e.ifName}, {"error-info", e.errorInfo},
        {"error-info-ext", e.errorInfoExt}, {"interval", e.interval}, {"period-id", e.periodId},
        {"packet-count", e.packetCount}, {"byte-count", e.byteCount}, {"timestamp-second", e.timestampSecond},
        {"timestamp-nanosecond", e.timestampNanosecond}, {"dscp", e.dscp}, {"measure-mode", e.measureMode}};
    // clang-format on
    out = record.dump();
    benchmark::DoNotOptimize(out);
  }
  Count(state, out.size());
}

BENCHMARK(GpbModule);
BENCHMARK(GpbStock);
BENCHMARK(JsonModule);
BENCHMARK(JsonStock);

}  // namespace
}  // namespace tarq
