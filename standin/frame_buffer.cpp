#include "standin/frame_buffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace tarq::standin {

static_assert(std::endian::native == std::endian::little, "frames are little-endian and read in place");

std::span<uint8_t> FrameBuffer::Room() {
  const size_t wanted = filled_ + kReadSize;
  if (capacity_ < wanted && !Grow(wanted)) return {};
  return {data_.get() + filled_, capacity_ - filled_};
}

bool FrameBuffer::Grow(size_t wanted) {
  const size_t capacity = std::min(std::max(wanted, 2 * capacity_), kMaxReadBuffer);
  std::unique_ptr<uint8_t[]> data(new (std::nothrow) uint8_t[capacity]);
  if (data == nullptr) return false;
  if (filled_ > 0) std::memcpy(data.get(), data_.get(), filled_);
  data_ = std::move(data);
  capacity_ = capacity;
  return true;
}

std::optional<uint32_t> FrameBuffer::Parse(size_t received, Time now, std::vector<MessageDescriptor>& frames) {
  if (filled_ == 0) since_ = now;
  filled_ += received;
  wire::FrameHeader header;
  while (halfFrame() >= sizeof header) {
    const uint8_t* const frame = data_.get() + parsed_;
    std::memcpy(&header, frame, sizeof header);
    if (header.msgLen > wire::kMaxMessageLength) return header.msgLen;
    if (halfFrame() - sizeof header < header.msgLen) break;
    frames.push_back({header.msgLen == 0 ? nullptr : frame + sizeof header, header.msgId, header.msgLen});
    parsed_ += sizeof header + header.msgLen;
    since_ = now;
  }
  return std::nullopt;
}

void FrameBuffer::Compact() {
  if (parsed_ > 0) std::memmove(data_.get(), data_.get() + parsed_, halfFrame());
  filled_ -= parsed_;
  parsed_ = 0;
}

void FrameBuffer::Shrink() {
  if (filled_ > 0) return;
  data_.reset();
  capacity_ = 0;
}

}  // namespace tarq::standin
