// Puts the frames of one connection together again from the bytes as they come.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/channel.h"
#include "standin/packed_list.h"

namespace tarq::standin {

/// Bytes that a read has room for at least.
inline constexpr size_t kReadSize = 256 * 1024;
/// Size of a read buffer at most: the longest half frame and a read.
inline constexpr size_t kMaxReadBuffer = sizeof(wire::FrameHeader) + wire::kMaxMessageLength + kReadSize;

/// Read buffer of one connection. A round is `Room`, `Parse`, use of the frames, `Compact`.
class FrameBuffer {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Where to read to: at least `kReadSize` bytes; none when there is no memory.
  std::span<uint8_t> Room();

  /// Takes in `received` bytes written to the room at `now` and appends a descriptor for each complete frame to
  /// `frames`. The payloads lie in this buffer, at any alignment, and stay valid until `Compact`. Returns the length
  /// that a frame header declares beyond the limit, if one does; nothing after it can be made out.
  std::optional<uint32_t> Parse(size_t received, Time now, std::vector<MessageDescriptor>& frames);

  /// Drops the parsed frames and keeps what is left of them, the beginning of the next.
  void Compact();

  /// Gives the memory back when no half frame is held.
  void Shrink();

  size_t halfFrame() const { return filled_ - parsed_; }  ///< bytes of a frame that is not complete
  Time halfSince() const { return since_; }               ///< when the first of them came

 private:
  bool Grow(size_t wanted);

  std::unique_ptr<uint8_t[]> data_;
  size_t capacity_ = 0;
  size_t filled_ = 0;
  size_t parsed_ = 0;
  Time since_{};
};

}  // namespace tarq::standin
