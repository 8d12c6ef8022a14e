#include "host/module_failures.h"

#include <algorithm>

#include "standin/standin.h"

namespace tarq::host {
namespace {

constexpr std::string_view kNotEncoded = "[STATS_EncodeStatsData] Stats data encode failed";
constexpr std::string_view kNotFramed[] = {"[NTVTARQ_UploadDataToTlm] Alloc buff failed",
                                           "[NTVTARQ_UploadDataToTlm] Format samlpeData failed",
                                           "[NTVTARQ_UploadDataToTlm] savroVtbl is NULL"};

bool Contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

}  // namespace

void FailureLines::Take(std::string_view text) {
  if (Contains(text, kNotEncoded)) {
    auto kind = std::ranges::find(kKinds, standin::ListInHand(), &Kind::msgId);
    if (kind != kKinds.end()) ++notEncoded_[static_cast<size_t>(kind - kKinds.begin())];
  }
  if (std::ranges::any_of(kNotFramed, [text](std::string_view line) { return Contains(text, line); })) ++notFramed_;
}

ModuleFailures FailureLines::Get() const {
  ModuleFailures failures;
  std::ranges::copy(notEncoded_, failures.notEncoded.begin());
  failures.notFramed = notFramed_;
  return failures;
}

}  // namespace tarq::host
