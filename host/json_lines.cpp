#include "host/json_lines.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <simdjson.h>

#include <iterator>
#include <nlohmann/json.hpp>

namespace tarq::host {
namespace {

std::string Base64(const std::string& data) {
  std::string text(4 * ((data.size() + 2) / 3) + 1, '\0');  // EVP_EncodeBlock ends the text with a NUL
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                               reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
  text.resize(static_cast<size_t>(length));
  return text;
}

bool IsJsonOnOneLine(const std::string& data) {
  // Every sample passes here, so the parser is the fastest at hand; it keeps its buffers from sample to sample.
  thread_local simdjson::dom::parser parser;
  return data.find('\n') == std::string::npos && data.find('\r') == std::string::npos && !parser.parse(data).error();
}

void AppendData(std::string& line, CodeType encoding, const std::string& data) {
  if (encoding == kCodeTypeGpb) {
    line.append("\"").append(Base64(data)).append("\"");
  } else if (IsJsonOnOneLine(data)) {
    line.append(data);
  } else {
    line.append(nlohmann::json(data).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    line.append(R"(,"malformed":true)");
  }
}

}  // namespace

std::string JsonLine(const Subscription& subscription, const standin::Sample& sample) {
  std::string line;
  line.reserve(sample.data.size() * 3 / 2 + 512);
  fmt::format_to(std::back_inserter(line),
                 R"({{"path":"{}","tlm_id":{},"task_id":{},"collect_timestamp":{},"active_report_end":{},)"
                 R"("record_count":{},"encoding":"{}","data":)",
                 subscription.kind->path, sample.tlmId, sample.taskId, sample.collectTimestamp,
                 sample.isActiveReportEnd, sample.recordCount, subscription.encodingName());
  AppendData(line, subscription.encoding, sample.data);
  return line.append("}\n");
}

}  // namespace tarq::host
