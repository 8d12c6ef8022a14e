#include "meter/pipeline.h"

#include <utility>

namespace tarq::meter {

using std::chrono::milliseconds;

Pipeline::Pipeline(const Options& options, const StopRequest& stop)
    : stop_(stop),
      isLive_(!options.interface.empty()),
      sender_(options.channel, size_t{options.backlogMib} << 20),
      names_(NamesFor(options)),
      reporter_(
          options.periodSeconds, options.messageBytes, names_,
          [this](Kind kind, std::vector<uint8_t> list, uint32_t records) { Emit(kind, std::move(list), records); }),
      periods_(options.periodSeconds, options.maxFlows,
               [this](uint64_t periodId, const FlowTable& flows) { reporter_.Report(periodId, flows); }) {}

void Pipeline::Count(int dlt, const CapturedPacket& packet) {
  PacketFacts facts;
  const Verdict verdict = ReadPacket(dlt, packet.bytes, packet.originalLength, facts);
  if (verdict == Verdict::kIp) {
    facts.key.ifIndex = names_.IndexFor(facts.key.ifIndex);
    return Count(facts, packet.time);
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
    const milliseconds rest = remaining();
    if (rest <= milliseconds{0}) return true;
    pollfd stop{stop_.descriptor(), POLLIN, 0};
    sender_.Wait(rest, {&stop, 1});
  }
  return false;
}

void Pipeline::Emit(Kind kind, std::vector<uint8_t> list, uint32_t records) {
  if (!isLive_) sender_.WaitForRoom(kind, list.size(), stop_.descriptor());
  sender_.Queue(kind, std::move(list), records);
  sender_.Wait(milliseconds{0}, {});
}

}  // namespace tarq::meter
