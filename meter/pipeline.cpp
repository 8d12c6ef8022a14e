#include "meter/pipeline.h"

#include <algorithm>
#include <utility>

namespace tarq::meter {

using std::chrono::milliseconds;

namespace {

/// Where periods pass faster than time does, a message per period would be a flood of small ones.
bool PassesPeriodsFast(const Options& options) {
  return options.pcapFile.empty() ? options.recordsPerSecond != 0 : !options.paceReal;
}

}  // namespace

Pipeline::Pipeline(const Options& options, const StopRequest& stop)
    : stop_(stop),
      isLive_(!options.interface.empty()),
      packsAcrossPeriods_(PassesPeriodsFast(options)),
      sender_(options.channel, size_t{options.backlogMib} << 20),
      names_(NamesFor(options)),
      reporter_(
          options.periodSeconds, options.messageBytes, names_,
          [this](Kind kind, std::vector<uint8_t> list, uint32_t records) { Emit(kind, std::move(list), records); }),
      periods_(options.periodSeconds, options.maxFlows,
               [this](uint64_t periodId, const FlowTable& flows) { Report(periodId, flows); }) {}

void Pipeline::Count(int dlt, const CapturedPacket& packet) {
  PacketFacts facts;
  const Verdict verdict =
      packet.time ? ReadPacket(dlt, packet.bytes, packet.originalLength, facts) : Verdict::kMalformed;
  if (verdict == Verdict::kIp) {
    facts.key.ifIndex = names_.IndexFor(facts.key.ifIndex);
    return Count(facts, *packet.time);
  }
  packets_.seen += 1;
  (verdict == Verdict::kNotIp       ? packets_.notIp
   : verdict == Verdict::kMalformed ? packets_.malformed
                                    : packets_.unsupported) += 1;
}

void Pipeline::Count(const PacketFacts& facts, Timestamp time) {
  packets_.seen += 1;
  if (periods_.Count(facts, time)) {
    packets_.metered += 1;
    packets_.meteredBytes += facts.ipBytes;
  } else {
    packets_.notMetered += 1;
  }
}

bool Pipeline::WaitUntilOver(const std::function<milliseconds()>& remaining) {
  while (!stop_.requested()) {
    reporter_.FlushIfDue(Clock::now());
    milliseconds rest = remaining();
    if (rest <= milliseconds{0}) return true;
    if (const auto due = reporter_.FlushDue()) {
      rest = std::min(rest, std::chrono::ceil<milliseconds>(*due - Clock::now()));
    }
    pollfd stop{stop_.descriptor(), POLLIN, 0};
    sender_.Wait(rest, {&stop, 1});
  }
  return false;
}

void Pipeline::ServeHost() {
  reporter_.FlushIfDue(Clock::now());
  sender_.Wait(milliseconds{0}, {});
}

void Pipeline::End() {
  periods_.CloseAll();
  reporter_.Flush();
}

void Pipeline::Report(uint64_t periodId, const FlowTable& flows) {
  reporter_.Report(periodId, flows);
  if (packsAcrossPeriods_) {
    reporter_.FlushIfDue(Clock::now());
  } else {
    reporter_.Flush();
  }
}

void Pipeline::Emit(Kind kind, std::vector<uint8_t> list, uint32_t records) {
  if (!isLive_) sender_.WaitForRoom(kind, list.size(), stop_.descriptor());
  sender_.Queue(kind, std::move(list), records);
  sender_.Wait(milliseconds{0}, {});
}

}  // namespace tarq::meter
