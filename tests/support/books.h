// The books as an outsider reads them: from the exposition of the metrics, summed anew.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

namespace tarq::test {

class Books {
 public:
  explicit Books(const std::string& exposition) {
    std::istringstream lines(exposition);
    for (std::string line; std::getline(lines, line);) {
      const size_t blank = line.rfind(' ');
      if (line[0] != '#') entries_.push_back({line.substr(0, blank), std::stod(line.substr(blank + 1))});
    }
  }

  /// Sum of the metric's values whose labels contain all the given ones.
  uint64_t Sum(const std::string& name, std::initializer_list<std::string> labels = {}) const {
    double sum = 0;
    for (const auto& [id, value] : entries_) {
      bool wanted = id == name || id.starts_with(name + "{");
      for (const std::string& label : labels) wanted = wanted && id.find(label) != id.npos;
      if (wanted) sum += value;
    }
    return static_cast<uint64_t>(sum);
  }

  double Value(const std::string& name) const {
    for (const auto& [id, value] : entries_) {
      if (id == name) return value;
    }
    return 0;
  }

  /// The sums that do not come out; empty when the books balance.
  std::string Imbalance() const {
    std::string wrong;
    const auto equal = [&wrong](const std::string& what, uint64_t whole, uint64_t parts) {
      if (whole != parts) wrong += what + ": " + std::to_string(whole) + ", its parts " + std::to_string(parts) + "\n";
    };
    const std::string stats = "queue=\"stats\"", messages = "tarq_channel_messages_total";
    equal("received", Sum("tarq_channel_received_messages_total"), Sum(messages));
    equal("queued", Sum(messages, {"queued"}), Sum("tarq_queue_written_total", {stats}));
    equal("refused", Sum(messages, {"refused"}), Sum("tarq_queue_refused_total", {stats}));
    equal("written", Sum("tarq_queue_written_total", {stats}),
          Sum("tarq_messages_unpacked_total") + Sum("tarq_messages_malformed_total") +
              Sum("tarq_messages_released_unread_total") + Sum("tarq_queue_depth", {stats}));
    equal("unpacked", Sum("tarq_records_unpacked_total"),
          Sum("tarq_records_counted_in_total") + Sum("tarq_records_forgotten_total") + Sum("tarq_records_in_no_row"));
    uint64_t allWanted = 0;
    for (const std::string kind : {"kind=\"native-ip\"", "kind=\"flow\"", "kind=\"flow-hop\""}) {
      uint64_t wanted = 0;
      for (const std::string encoding : {"encoding=\"json\"", "encoding=\"gpb\""}) {
        if (Has("tarq_records_encoded_total", kind, encoding)) wanted += Sum("tarq_records_unpacked_total", {kind});
      }
      const uint64_t encoded = Sum("tarq_records_encoded_total", {kind});
      const uint64_t refused = Sum("tarq_records_not_encoded_total", {kind});
      if (Sum("tarq_samples_not_framed_total") == 0) equal(kind, wanted, encoded + refused);
      allWanted += wanted;
    }
    equal("encoded", allWanted,
          Sum("tarq_records_encoded_total") + Sum("tarq_records_not_encoded_total") + Sum("tarq_records_not_uploaded"));
    if (Sum("tarq_records_forgotten_total") + Sum("tarq_records_in_no_row") == 0) {
      equal("counted out", allWanted, Sum("tarq_records_counted_out_total") + Sum("tarq_records_not_encoded_total"));
    }
    for (const std::string unit : {"samples", "records"}) {
      const std::string total = "tarq_subscription_" + unit + "_total";
      for (unsigned i = 1; Has(total, Place(i)); ++i) {
        equal("subscription " + std::to_string(i) + " " + unit, Sum(total, {Place(i), "encoded\"}"}),
              Sum(total, {Place(i)}) - Sum(total, {Place(i), "encoded\"}"}) +
                  Sum("tarq_subscription_waiting_" + unit, {Place(i)}));
      }
    }
    equal("uploaded", Sum("tarq_samples_uploaded_total"), Sum("tarq_subscription_samples_total", {"encoded\"}"}));
    return wrong;
  }

 private:
  static std::string Place(unsigned i) { return "subscription=\"" + std::to_string(i) + "\""; }
  bool Has(const std::string& name, const std::string& label, const std::string& other = "") const {
    for (const auto& [id, value] : entries_) {
      if (id.starts_with(name + "{") && id.find(label) != id.npos && id.find(other) != id.npos) return true;
    }
    return false;
  }

  std::vector<std::pair<std::string, double>> entries_;
};

}  // namespace tarq::test
