#include "host/terminal_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/printable.h"
#include "tarq.pb.h"

namespace tarq::host {
namespace {

using Json = nlohmann::json;

/// Bytes of a malformed document that are shown.
constexpr size_t kShownBytes = 160;

/// Sets the fields of `message` from the members of `object`, whose names have hyphens for underscores. Throws
/// `Json::exception` where a value has another type.
void Fill(google::protobuf::Message& message, const Json& object) {
  using Field = google::protobuf::FieldDescriptor;
  const auto* reflection = message.GetReflection();
  for (const auto& [member, value] : object.items()) {
    std::string name = member;
    std::ranges::replace(name, '-', '_');
    const Field* field = message.GetDescriptor()->FindFieldByName(name);
    if (!field) continue;
    if (field->is_repeated()) {
      for (const Json& one : value) Fill(*reflection->AddMessage(&message, field), one);
    } else if (field->cpp_type() == Field::CPPTYPE_MESSAGE) {
      Fill(*reflection->MutableMessage(&message, field), value);
    } else if (field->cpp_type() == Field::CPPTYPE_STRING) {
      reflection->SetString(&message, field, value.get<std::string>());
    } else if (field->cpp_type() == Field::CPPTYPE_UINT32) {
      reflection->SetUInt32(&message, field, value.get<uint32_t>());
    } else {
      reflection->SetUInt64(&message, field, value.get<uint64_t>());
    }
  }
}

std::optional<Tarq> FromJson(const Json& document) try {
  Tarq message;
  Fill(message, document.at("tarq"));
  return message;
} catch (const Json::exception&) {
  return std::nullopt;
}

std::optional<Tarq> FromGpb(const std::string& data) {
  Tarq message;
  return message.ParseFromString(data) ? std::optional(message) : std::nullopt;
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
  bool isJson = subscription.encoding == kCodeTypeJson;
  Json document = isJson ? Json::parse(sample.data, nullptr, false) : Json();
  if (document.is_discarded()) {
    return text + "    malformed JSON: " + Printable(sample.data.substr(0, kShownBytes)) + " ...\n";
  }
  auto message = isJson ? FromJson(document) : FromGpb(sample.data);
  if (!message) return text + "    (cannot be decoded)\n";
  AppendRecords(text, message->flow_native_ip_statistics().flow_native_ip_statistic());
  AppendRecords(text, message->flow_statistics().flow_statistic());
  AppendRecords(text, message->flow_hop_statistics().flow_hop_statistic());
  return text;
}

}  // namespace tarq::host
