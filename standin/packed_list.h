// The packed statistics lists: what a statistics message carries from the data plane. The layout is written down in
// docs/formats.md; senders build lists here, the message library takes them apart.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/message.h"

namespace tarq::wire {

inline constexpr uint32_t kListMagic = 0x4C515254;  ///< the bytes "TRQL"
inline constexpr uint16_t kListVersion = 1;

/// First 24 bytes of a packed list, little-endian. Then come `entryCount` entries of `entrySize` bytes, then
/// `tailLength` bytes that entries refer to; the three together are the whole message, no byte less or more.
struct ListHeader {
  uint32_t magic;
  uint16_t version;
  uint16_t entrySize;  ///< 192 flow, 136 flow-hop, 136 native IP
  uint32_t msgId;      ///< the kind, the same as the message's
  uint32_t entryCount;
  uint32_t tailLength;  ///< 0 but for native IP
  uint32_t reserved;    ///< 0
};
static_assert(sizeof(ListHeader) == 24);

/// Longest text of a native IP entry, its terminator not counted. A packer cuts longer ones; a list with one is
/// refused.
inline constexpr size_t kMaxTextLength = 255;

/// Statistics kind of an entry type.
constexpr uint32_t MsgIdOf(const FlowEntry&) { return kFlowMsgId; }
constexpr uint32_t MsgIdOf(const FlowHopEntry&) { return kFlowHopMsgId; }
constexpr uint32_t MsgIdOf(const NativeIpEntry&) { return kNativeIpMsgId; }

/// Lets a text be looked up without a copy.
struct TextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

/// Texts and MACs that entries of one list refer to.
struct Tail {
  std::vector<uint8_t> bytes;
  std::unordered_map<std::string, uint64_t, TextHash, std::equal_to<>> places;  ///< what `bytes` holds, counted from 1
};

/// Gathers entries of one kind into packed lists of at most `limit` bytes each.
/// A native IP entry travels with its texts and MAC in the list's tail, a text that entries share only once: in place
/// of its three pointers stand 64-bit offsets from the start of the list, 0 for none.
template <class Entry>
class ListPacker {
 public:
  /// `limit` is the size in bytes of a finished list at most; an entry that alone exceeds it is still taken, alone.
  explicit ListPacker(uint32_t limit) : limit_(limit) {}

  /// Adds a copy of `entry`. Returns false, having added nothing, when the list would outgrow the limit: take it first.
  bool Add(const Entry& entry);

  uint32_t count() const { return count_; }

  /// Returns the finished list and starts the next one. Empty when nothing was added.
  std::vector<uint8_t> Take();

 private:
  uint32_t limit_;
  uint32_t count_ = 0;
  std::vector<uint8_t> entries_;
  Tail tail_;
};

extern template class ListPacker<FlowEntry>;
extern template class ListPacker<FlowHopEntry>;
extern template class ListPacker<NativeIpEntry>;

/// First 8 bytes of a channel frame, little-endian; `msgLen` payload bytes follow.
struct FrameHeader {
  uint32_t msgId;
  uint32_t msgLen;
};
static_assert(sizeof(FrameHeader) == 8);

/// Largest payload that the channel server takes; a frame that declares more closes its connection.
inline constexpr uint32_t kMaxMessageLength = 1u << 20;

/// Port of the channel server unless it is overridden.
inline constexpr uint16_t kDefaultChannelPort = 58234;

}  // namespace tarq::wire
