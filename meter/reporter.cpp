#include "meter/reporter.h"

#include <utility>

#include "meter/records.h"

namespace tarq::meter {

Reporter::Reporter(uint32_t periodSeconds, uint32_t messageBytes, InterfaceNames& names, Emit emit)
    : periodSeconds_(periodSeconds),
      names_(names),
      emit_(std::move(emit)),
      flowPacker_(messageBytes),
      flowHopPacker_(messageBytes),
      nativeIpPacker_(messageBytes) {}

void Reporter::Report(uint64_t periodId, const FlowTable& flows) {
  if (!keptSince_) keptSince_ = Clock::now();
  for (const auto& [key, counts] : flows) {
    const FlowReport report{key, counts, periodId, periodSeconds_, names_.NameOf(key.ifIndex)};
    Add(Kind::kFlow, flowPacker_, MakeFlowEntry(report));
    Add(Kind::kFlowHop, flowHopPacker_, MakeFlowHopEntry(report));
    if (key.addressFamily == 0) Add(Kind::kNativeIp, nativeIpPacker_, MakeNativeIpEntry(report, services_));
  }
  names_.Renew();
  periods_ += 1;
  flows_ += flows.size();
}

void Reporter::Flush() {
  EmitList(Kind::kFlow, flowPacker_);
  EmitList(Kind::kFlowHop, flowHopPacker_);
  EmitList(Kind::kNativeIp, nativeIpPacker_);
  keptSince_.reset();
}

void Reporter::FlushIfDue(Clock::time_point now) {
  if (keptSince_ && now >= *FlushDue()) Flush();
}

std::optional<Clock::time_point> Reporter::FlushDue() const {
  if (!keptSince_) return std::nullopt;
  return *keptSince_ + kLongestHold;
}

template <class Entry>
void Reporter::Add(Kind kind, wire::ListPacker<Entry>& packer, const Entry& entry) {
  if (packer.Add(entry)) return;
  EmitList(kind, packer);
  packer.Add(entry);
}

template <class Entry>
void Reporter::EmitList(Kind kind, wire::ListPacker<Entry>& packer) {
  const uint32_t records = packer.count();
  if (records != 0) emit_(kind, packer.Take(), records);
}

}  // namespace tarq::meter
