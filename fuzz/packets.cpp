// A cut capture gives the same facts, but for what lies behind the cut. Input: packet; at the end, where to cut it,
// original length, link type.
#include <pcap/dlt.h>

#include "check.h"
#include "meter/packet.h"

namespace tarq::fuzz {

constexpr int kLinkTypes[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW, DLT_NULL, DLT_LOOP};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const int dlt = input.PickValueInArray(kLinkTypes);
  const auto onWire = input.ConsumeIntegral<uint32_t>();
  const size_t cut = input.ConsumeIntegral<uint8_t>();
  const auto packet = input.ConsumeRemainingBytes<uint8_t>();
  const std::vector<uint8_t> head(packet.begin(), packet.begin() + std::min<ptrdiff_t>(cut, std::ssize(packet)));
  const uint32_t length = std::max(onWire, static_cast<uint32_t>(packet.size()));

  meter::PacketFacts whole, part;
  const meter::Verdict verdict = meter::ReadPacket(dlt, packet, length, whole);
  const meter::Verdict headVerdict = meter::ReadPacket(dlt, head, length, part);
  Check(verdict == headVerdict || headVerdict == meter::Verdict::kMalformed, "the same verdict, or malformed");
  if (headVerdict != meter::Verdict::kIp) return 0;
  if ((part.key.sourcePort | part.key.destinationPort) == 0) {  // cut off, like the protocol behind extension headers
    whole.key.sourcePort = whole.key.destinationPort = 0;
    whole.key.protocol = part.key.protocol;
  }
  Check(meter::Words(part.key) == meter::Words(whole.key) && part.ipBytes == whole.ipBytes, "the same flow and bytes");
  return 0;
}

}  // namespace tarq::fuzz
