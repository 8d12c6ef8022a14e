#include "standin/packed_list.h"

#include <bit>
#include <cstring>
#include <string_view>

namespace tarq::wire {
namespace {

static_assert(std::endian::native == std::endian::little, "packed lists are little-endian and written in place");

constexpr size_t kMacLength = 6;

/// Appends `bytes` to the tail unless it holds them already. Returns their place, counted from 1 at the tail's start,
/// so that 0 stays "none" until the tail's own place is known.
uint64_t Place(std::string_view bytes, Tail& tail) {
  const auto found = tail.places.find(bytes);
  if (found != tail.places.end()) return found->second;
  const uint64_t place = tail.bytes.size() + 1;
  tail.bytes.insert(tail.bytes.end(), bytes.begin(), bytes.end());
  tail.places.emplace(bytes, place);
  return place;
}

template <class T>
void SetOffset(const T*& field, uint64_t offset) {
  field = reinterpret_cast<const T*>(offset);
}

void PlaceText(const char*& field, Tail& tail) {
  if (field == nullptr) return;
  const size_t length = strnlen(field, kMaxTextLength + 1);
  if (length <= kMaxTextLength) return SetOffset(field, Place({field, length + 1}, tail));
  std::string cut(field, kMaxTextLength);
  SetOffset(field, Place(cut.append(1, '\0'), tail));
}

/// Moves what the entry points at into the tail. Only native IP entries point at anything.
template <class Entry>
void MoveToTail(Entry&, Tail&) {}

template <>
void MoveToTail(NativeIpEntry& entry, Tail& tail) {
  const auto* const mac = reinterpret_cast<const char*>(entry.clientMac);
  if (mac != nullptr) SetOffset(entry.clientMac, Place({mac, kMacLength}, tail));
  PlaceText(entry.ifName, tail);
  PlaceText(entry.appName, tail);
}

/// Takes back what was added to the tail beyond its first `size` bytes.
void Shrink(Tail& tail, size_t size) {
  if (tail.bytes.size() == size) return;
  std::erase_if(tail.places, [&](const auto& place) { return place.second > size; });
  tail.bytes.resize(size);
}

/// Turns the places that the entries hold into offsets from the start of the list.
template <class Entry>
void AddToOffsets(std::vector<uint8_t>&, uint64_t) {}

template <>
void AddToOffsets<NativeIpEntry>(std::vector<uint8_t>& list, uint64_t tailStart) {
  for (size_t at = sizeof(ListHeader); at < tailStart; at += sizeof(NativeIpEntry)) {
    for (const size_t field :
         {offsetof(NativeIpEntry, clientMac), offsetof(NativeIpEntry, ifName), offsetof(NativeIpEntry, appName)}) {
      uint64_t place;
      std::memcpy(&place, &list[at + field], sizeof place);
      if (place == 0) continue;
      place += tailStart - 1;
      std::memcpy(&list[at + field], &place, sizeof place);
    }
  }
}

}  // namespace

template <class Entry>
bool ListPacker<Entry>::Add(const Entry& entry) {
  Entry packed = entry;
  const size_t tailBefore = tail_.bytes.size();
  MoveToTail(packed, tail_);
  const size_t size = sizeof(ListHeader) + entries_.size() + sizeof packed + tail_.bytes.size();
  if (count_ > 0 && size > limit_) {
    Shrink(tail_, tailBefore);
    return false;
  }
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&packed);
  entries_.insert(entries_.end(), bytes, bytes + sizeof packed);
  ++count_;
  return true;
}

template <class Entry>
std::vector<uint8_t> ListPacker<Entry>::Take() {
  if (count_ == 0) return {};
  const ListHeader header{.magic = kListMagic,
                          .version = kListVersion,
                          .entrySize = sizeof(Entry),
                          .msgId = MsgIdOf(Entry{}),
                          .entryCount = count_,
                          .tailLength = static_cast<uint32_t>(tail_.bytes.size()),
                          .reserved = 0};
  const auto* const start = reinterpret_cast<const uint8_t*>(&header);
  std::vector<uint8_t> list;
  list.reserve(sizeof header + entries_.size() + tail_.bytes.size());
  list.insert(list.end(), start, start + sizeof header);
  list.insert(list.end(), entries_.begin(), entries_.end());
  AddToOffsets<Entry>(list, list.size());
  list.insert(list.end(), tail_.bytes.begin(), tail_.bytes.end());
  count_ = 0;
  entries_.clear();
  tail_.bytes.clear();
  tail_.places.clear();
  return list;
}

template class ListPacker<FlowEntry>;
template class ListPacker<FlowHopEntry>;
template class ListPacker<NativeIpEntry>;

}  // namespace tarq::wire
