// Host and meter as running programs, and what they say of themselves.
#pragma once

#include <memory>
#include <sstream>

#include "support/books.h"
#include "support/process.h"

namespace tarq::test {

namespace fs = std::filesystem;

/// A host that takes messages. Its metrics are served when the options have "--metrics".
class HostProcess {
 public:
  HostProcess(const fs::path& scratch, std::vector<std::string> options, const std::string& port = "0")
      : port_(scratch / "port"), log_(scratch / "host") {
    fs::remove(port_);  // one that was killed leaves its own behind
    std::vector<std::string> command = {HOST, "--module", TEST_MODULE, "--port", port, "--port-file", port_.string()};
    command.insert(command.end(), options.begin(), options.end());
    process_ = std::make_unique<Process>(command, log_);
    EXPECT_TRUE(Eventually([this] { return !ReadFile(port_).empty(); })) << process_->Err();
  }
  std::string Port() const { return std::to_string(std::stoi(ReadFile(port_))); }
  std::string Channel() const { return "127.0.0.1:" + Port(); }
  Process& process() { return *process_; }
  int Stop() {
    process_->Signal(SIGTERM);
    return process_->Wait();
  }

  std::string Get(const std::string& page) const {
    EXPECT_TRUE(Eventually([this] { return process_->Err().find("/metrics\n") != std::string::npos; }));
    const std::string said = process_->Err(), start = "metrics at ";
    const size_t at = said.find(start) + start.size();
    const std::string url = said.substr(at, said.find("/metrics", at) - at);
    return RunToEnd({"curl", "-sS", url + "/" + page}, log_.string() + "-get").out;
  }
  Books Metrics() const { return Books(Get("metrics")); }

 private:
  fs::path port_, log_;
  std::unique_ptr<Process> process_;
};

/// One kind's line of a meter's summary, in records. Those unconfirmed were sent, too.
struct MeterLine {
  uint64_t made = 0, sent = 0, lost = 0, unconfirmed = 0;
};
inline MeterLine MeterLineOf(const std::string& summary, const std::string& kind) {
  const size_t table = summary.find("records in "), line = summary.find("\n" + kind + " ", table);
  if (table == summary.npos || line == summary.npos) return {};
  std::istringstream fields(summary.substr(line));
  std::string name;
  uint64_t messages;
  MeterLine parsed;
  fields >> name >> parsed.made >> messages >> parsed.sent >> messages >> parsed.lost >> messages >> parsed.unconfirmed;
  return parsed;
}

}  // namespace tarq::test
