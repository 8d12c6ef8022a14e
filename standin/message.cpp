#include "platform/message.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "standin/crossings.h"
#include "standin/log.h"
#include "standin/packed_list.h"
#include "standin/period_ledger.h"
#include "standin/standin.h"

namespace tarq {
namespace {

static_assert(std::endian::native == std::endian::little, "packed lists are little-endian and read in place");
static_assert(sizeof(void*) == sizeof(uint64_t), "a packed entry's pointer fields hold 64-bit offsets");

using wire::ListHeader;

constexpr size_t kMacLength = 6;

/// What was wrong with a message; empty when nothing was.
struct Reason {
  char text[128];

  Reason() { text[0] = '\0'; }
  __attribute__((format(printf, 2, 3))) void Set(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
  }
  bool empty() const { return text[0] == '\0'; }
};

/// An unpacked list before it is handed out: the entries, then the tail.
struct Unpacked {
  uint8_t* entries;
  uint8_t* tail;
  ListHeader header;

  uint64_t tailStart() const { return sizeof(ListHeader) + uint64_t{header.entryCount} * header.entrySize; }
};

/// How one kind's lists look, and its counters.
struct Kind {
  const char* name;
  uint32_t msgId;
  uint16_t entrySize;
  int countWord;        ///< index in `StatisticsList::words`
  size_t periodOffset;  ///< of the low 32 bits of the period's number in an entry
  /// Turns the entries' offsets into pointers into the tail; null when the kind has no tail.
  void (*resolve)(const Unpacked& list, Reason& reason);
  std::atomic<uint64_t> unpacked = 0, refused = 0, records = 0;
};

/// The offset that stands in a pointer field of a packed entry.
template <class T>
uint64_t OffsetIn(const T* const& field) {
  return reinterpret_cast<uint64_t>(field);
}

/// The `size` bytes that `offset` leads to, or null when they are not all inside the tail.
const uint8_t* InTail(const Unpacked& list, uint64_t offset, uint64_t size) {
  const uint64_t start = list.tailStart();
  if (offset < start || offset - start > list.header.tailLength) return nullptr;
  return list.header.tailLength - (offset - start) < size ? nullptr : list.tail + (offset - start);
}

/// Turns the offset in `field` into a pointer to a text that ends inside the tail and in time. False when there is
/// none. The limit also bounds the work that many entries with one long text would make.
bool ResolveText(const Unpacked& list, const char*& field) {
  const uint64_t offset = OffsetIn(field);
  const uint8_t* const text = InTail(list, offset, 1);
  field = reinterpret_cast<const char*>(text);
  if (text == nullptr) return false;
  const uint64_t left = list.tailStart() + list.header.tailLength - offset;
  return std::memchr(text, '\0', std::min<uint64_t>(left, wire::kMaxTextLength + 1)) != nullptr;
}

bool ResolveMac(const Unpacked& list, const uint8_t*& field) {
  field = InTail(list, OffsetIn(field), kMacLength);
  return field != nullptr;
}

void ResolveNativeIp(const Unpacked& list, Reason& reason) {
  auto* const entries = reinterpret_cast<NativeIpEntry*>(list.entries);
  for (uint32_t i = 0; i < list.header.entryCount && reason.empty(); ++i) {
    NativeIpEntry& entry = entries[i];
    const uint64_t mac = OffsetIn(entry.clientMac), ifName = OffsetIn(entry.ifName), appName = OffsetIn(entry.appName);
    if (mac != 0 && !ResolveMac(list, entry.clientMac)) {
      reason.Set("entry %u: MAC at offset %llu is not inside the tail", i, static_cast<unsigned long long>(mac));
    } else if (!ResolveText(list, entry.ifName)) {
      reason.Set("entry %u: no interface name at offset %llu", i, static_cast<unsigned long long>(ifName));
    } else if (appName != 0 && !ResolveText(list, entry.appName)) {
      reason.Set("entry %u: no application name at offset %llu", i, static_cast<unsigned long long>(appName));
    }
  }
}

Kind g_kinds[] = {
    {"native IP", kNativeIpMsgId, sizeof(NativeIpEntry), 2, offsetof(NativeIpEntry, periodId), ResolveNativeIp},
    {"flow", kFlowMsgId, sizeof(FlowEntry), 0, offsetof(FlowEntry, periodId), nullptr},
    {"flow-hop", kFlowHopMsgId, sizeof(FlowHopEntry), 0, offsetof(FlowHopEntry, periodId), nullptr},
};
Kind& g_nativeIp = g_kinds[0];
Kind& g_flow = g_kinds[1];
Kind& g_flowHop = g_kinds[2];

void CheckHeader(const Kind& kind, const ListHeader& header, uint32_t length, Reason& reason) {
  if (header.magic != wire::kListMagic) return reason.Set("magic 0x%08X", header.magic);
  if (header.version != wire::kListVersion)
    return reason.Set("version %u, expected %u", header.version, wire::kListVersion);
  if (header.msgId != kind.msgId) return reason.Set("message identifier 0x%08X", header.msgId);
  if (header.entrySize != kind.entrySize)
    return reason.Set("entry size %u, expected %u", header.entrySize, kind.entrySize);
  if (header.reserved != 0) return reason.Set("reserved word 0x%08X is not 0", header.reserved);
  if (header.tailLength != 0 && kind.resolve == nullptr) return reason.Set("a tail of %u bytes", header.tailLength);
  const uint64_t wanted = sizeof(ListHeader) + uint64_t{header.entryCount} * header.entrySize + header.tailLength;
  if (wanted != length) {
    reason.Set("%u bytes, its header says %llu", length, static_cast<unsigned long long>(wanted));
  }
}

/// Copies entries and tail into one allocation of their own and returns it; null with a reason when the message is bad.
uint8_t* Copy(const Kind& kind, const uint8_t* payload, const ListHeader& header, uint32_t length, Reason& reason) {
  const size_t size = length - sizeof(ListHeader);
  auto* const block = static_cast<uint8_t*>(std::malloc(size));
  if (block == nullptr) {
    reason.Set("no memory for %zu bytes", size);
    return nullptr;
  }
  std::memcpy(block, payload + sizeof(ListHeader), size);
  if (kind.resolve == nullptr) return block;
  kind.resolve({block, block + size - header.tailLength, header}, reason);
  if (reason.empty()) return block;
  std::free(block);
  return nullptr;
}

/// Fills `list` from a good message; leaves it alone and sets the reason otherwise.
void Fill(const Kind& kind, const void* payload, uint32_t length, StatisticsList& list, Reason& reason) {
  if (payload == nullptr || length < sizeof(ListHeader)) return reason.Set("%u bytes are no list header", length);
  ListHeader header;
  std::memcpy(&header, payload, sizeof header);
  CheckHeader(kind, header, length, reason);
  if (!reason.empty() || header.entryCount == 0) return;
  const auto* const entries = Copy(kind, static_cast<const uint8_t*>(payload), header, length, reason);
  if (entries == nullptr) return;
  list.words[1] = reinterpret_cast<uint64_t>(entries);
  list.words[kind.countWord] = header.entryCount;
}

/// Tells the ledger of the list's records, a run of one period at a time.
void NotePeriods(const Kind& kind, const StatisticsList& list) {
  const auto* entry = reinterpret_cast<const uint8_t*>(list.words[1]);
  const auto periodOf = [&kind](const uint8_t* one) {
    uint32_t period;
    std::memcpy(&period, one + kind.periodOffset, sizeof period);
    return period;
  };
  for (uint64_t left = list.words[kind.countWord]; left > 0;) {
    const uint32_t period = periodOf(entry);
    uint64_t run = 0;
    do {
      ++run, --left, entry += kind.entrySize;
    } while (left > 0 && periodOf(entry) == period);
    standin::PeriodLedger::Get().AddUnpacked(period, run);
  }
}

/// The list that the calling thread has in hand, by its message identifier.
uint32_t& InHand() {
  static thread_local uint32_t msgId = 0;
  return msgId;
}

uint32_t Unpack(Kind& kind, const void* payload, uint32_t length, StatisticsList* list) {
  if (list == nullptr) return 1;
  ++standin::ThisThreadsCrossings().unpackings;
  *list = {};
  Reason reason;
  Fill(kind, payload, length, *list, reason);
  if (!reason.empty()) {
    ++kind.refused;
    standin::Log(kLogFailure, "[message] %s list refused: %s", kind.name, reason.text);
    return 1;
  }
  ++kind.unpacked;
  kind.records += list->words[kind.countWord];
  NotePeriods(kind, *list);
  InHand() = kind.msgId;
  return 0;
}

void Free(StatisticsList* list) {
  if (list == nullptr) return;
  std::free(reinterpret_cast<void*>(list->words[1]));
  *list = {};
  InHand() = 0;
}

}  // namespace

uint32_t tarq_flow_statistics_list_to_savro__unpack(const void* payload, uint32_t length, StatisticsList* list) {
  return Unpack(g_flow, payload, length, list);
}
uint32_t tarq_flow_hop_statistics_list_to_savro__unpack(const void* payload, uint32_t length, StatisticsList* list) {
  return Unpack(g_flowHop, payload, length, list);
}
uint32_t ntvtarq_entry_list_savro__unpack(const void* payload, uint32_t length, StatisticsList* list) {
  return Unpack(g_nativeIp, payload, length, list);
}

void tarq_flow_statistics_list_to_savro_free__unpacked(StatisticsList* list) { Free(list); }
void tarq_flow_hop_statistics_list_to_savro_free__unpacked(StatisticsList* list) { Free(list); }
void ntvtarq_entry_list_savro_free__unpacked(StatisticsList* list) { Free(list); }

uint32_t ntvtarq_recv_init(void) { return 0; }  // unpacking needs no set-up

uint32_t standin::ListInHand() { return InHand(); }

standin::MessageCounters standin::GetMessageCounters(uint32_t msgId) {
  for (const Kind& kind : g_kinds) {
    if (kind.msgId == msgId) return {kind.unpacked, kind.refused, kind.records};
  }
  return {};
}

}  // namespace tarq
