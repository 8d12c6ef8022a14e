#include "host/terminal_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <google/protobuf/util/json_util.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <optional>
#include <string_view>

#include "tarq.pb.h"

namespace tarq::host {
namespace {

std::optional<Tarq> Decode(CodeType encoding, std::string_view data) {
  Tarq message;
  if (encoding == kCodeTypeGpb) {
    if (message.ParseFromArray(data.data(), static_cast<int>(data.size()))) return message;
    return std::nullopt;
  }
  constexpr std::string_view kOpening = R"({"tarq":)";
  if (!data.starts_with(kOpening) || !data.ends_with('}')) return std::nullopt;
  data = data.substr(kOpening.size(), data.size() - kOpening.size() - 1);
  if (!google::protobuf::util::JsonStringToMessage({data.data(), data.size()}, &message).ok()) return std::nullopt;
  return message;
}

std::string Printable(std::string text) {
  std::ranges::replace_if(
      text, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
  return text;
}

std::string Protocol(uint32_t number) {
  switch (number) {
    case 1:
      return "icmp";
    case 6:
      return "tcp";
    case 17:
      return "udp";
    case 58:
      return "icmpv6";
    default:
      return fmt::format("protocol {}", number);
  }
}

std::string Endpoint(const std::string& address, uint32_t port) {
  bool isIpv6 = address.find(':') != std::string::npos;
  return Printable(isIpv6 ? fmt::format("[{}]:{}", address, port) : fmt::format("{}:{}", address, port));
}

template <class Record>
std::string Tuple(const Record& record) {
  return fmt::format("{} -> {} {}", Endpoint(record.source_ip(), record.source_port()),
                     Endpoint(record.destination_ip(), record.destination_port()), Protocol(record.protocol()));
}

std::string What(const FlowStatistic& record) { return Tuple(record); }

std::string What(const FlowNativeIpStatistic& record) {
  return Tuple(record) + " " + (record.has_app_name() ? Printable(record.app_name()) : "(application unknown)");
}

std::string What(const FlowHopStatistic& record) {
  return fmt::format("flow {} on {}", record.flow_id(), Printable(record.if_name()));
}

template <class Records>
void AppendRecords(std::string& text, const Records& records) {
  for (int i = 0; i < std::min(records.size(), kShownRecords); ++i) {
    fmt::format_to(std::back_inserter(text), "    {}  {} packets, {} bytes\n", What(records[i]),
                   records[i].packet_count(), records[i].byte_count());
  }
  if (records.size() > kShownRecords) {
    fmt::format_to(std::back_inserter(text), "    and {} more\n", records.size() - kShownRecords);
  }
}

std::string TimeText(uint64_t milliseconds) {
  auto seconds = static_cast<time_t>(milliseconds / 1000);
  return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(seconds), milliseconds % 1000);
}

}  // namespace

std::string TerminalText(const Subscription& subscription, const standin::Sample& sample) {
  std::string text = fmt::format("{}  {:<9} {:<4}  {} records, {} bytes{}\n", TimeText(sample.collectTimestamp),
                                 subscription.kind->name, subscription.encodingName(), sample.recordCount,
                                 sample.data.size(), sample.isActiveReportEnd ? ", end of report interval" : "");
  auto message = Decode(subscription.encoding, sample.data);
  if (!message) return text + "    (cannot be decoded)\n";
  AppendRecords(text, message->flow_native_ip_statistics().flow_native_ip_statistic());
  AppendRecords(text, message->flow_statistics().flow_statistic());
  AppendRecords(text, message->flow_hop_statistics().flow_hop_statistic());
  return text;
}

}  // namespace tarq::host
