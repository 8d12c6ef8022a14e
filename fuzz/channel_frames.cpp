// Frames must not depend on how reads cut the bytes. Input: the stream; at the end, eight sizes of pieces less 1.
#include "check.h"
#include "standin/frame_buffer.h"

namespace tarq::fuzz {

/// Frames, a length that is too long, bytes of a half frame.
using Found = std::tuple<std::vector<std::pair<uint32_t, std::string>>, std::optional<uint32_t>, size_t>;

Found Feed(const std::vector<uint8_t>& stream, const std::vector<size_t>& sizes) {
  standin::FrameBuffer buffer;
  Found found;
  auto& [frames, tooLong, halfFrame] = found;
  std::vector<size_t> ends;  // of the pieces; each arrives at the time that is its number
  for (size_t at = 0; at < stream.size() && !tooLong; at = ends.back()) {
    const size_t size = std::min(sizes[ends.size() % sizes.size()], stream.size() - at);
    std::memcpy(buffer.Room().first(size).data(), &stream[at], size);
    std::vector<MessageDescriptor> batch;
    tooLong = buffer.Parse(size, standin::FrameBuffer::Time(std::chrono::seconds(ends.size())), batch);
    for (const auto& [payload, id, length] : batch)
      frames.emplace_back(id, std::string(static_cast<const char*>(payload), length));
    ends.push_back(at + size);
    buffer.Compact();
    if (ends.size() % 32 == 0) buffer.Shrink();
    halfFrame = tooLong ? 0 : buffer.halfFrame();
    if (halfFrame == 0) continue;
    const auto first = std::upper_bound(ends.begin(), ends.end(), ends.back() - halfFrame) - ends.begin();
    Check(buffer.halfSince().time_since_epoch() == std::chrono::seconds(first),
          "a half frame's age is its first byte's");
  }
  return found;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::vector<size_t> sizes(8);
  for (size_t& piece : sizes) piece = input.ConsumeIntegral<uint8_t>() + 1;
  const auto stream = input.ConsumeRemainingBytes<uint8_t>();
  Check(Feed(stream, sizes) == Feed(stream, {standin::kReadSize}), "frames do not depend on the pieces");
  return 0;
}

}  // namespace tarq::fuzz
