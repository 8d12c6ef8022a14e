// A GPB fragment: a field of the top-level message, holding field 1, one list entry, holding a record's fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "encode/gpb_fields.h"

namespace tarq {

/// What a kind's fragments look like.
struct GpbFragment {
  uint32_t container;    ///< field of the top-level message, at most 15
  uint32_t largestBody;  ///< bytes that `UncheckedGpb` may write for one record
  uint32_t usualHeader;  ///< bytes before most bodies: 4 up to a body of 125 bytes, 6 from 128 bytes on
};

/// Where a kind's record body and its wrapped list entry lie when they cannot be written in place.
struct GpbScratch {
  uint8_t body[1024];
  uint8_t entry[1024];
};

/// A length below 2^14, to the byte.
TARQ_INLINE uint8_t* PutLength(uint8_t* out, uint32_t length) {
  if (length < 0x80) {
    *out = static_cast<uint8_t>(length);
    return out + 1;
  }
  Store(out, static_cast<uint16_t>((length & 0x7F) | 0x80 | length >> 7 << 8));
  return out + 2;
}

/// Puts the two wrappings before a body that stands `kind.usualHeader` bytes behind `out`. The fragment's length.
TARQ_INLINE int32_t WrapInPlace(const GpbFragment& kind, uint8_t* out, const uint8_t* end) {
  const auto body = static_cast<uint32_t>(end - out) - kind.usualHeader;
  const uint32_t entry = body + (body < 0x80 ? 2 : 3);
  const uint32_t header = entry - body + (entry < 0x80 ? 2 : 3);
  if (header != kind.usualHeader) memmove(out + header, out + kind.usualHeader, body);
  *out++ = static_cast<uint8_t>(kind.container << 3 | kWireLengthDelimited);
  out = PutLength(out, entry);
  *out++ = 1 << 3 | kWireLengthDelimited;
  PutLength(out, body);
  return static_cast<int32_t>(header + body);
}

/// Wraps a body through the scratch areas and the primitives, which find and log what does not fit. `body` is the
/// length of what lies in the first area; where it is negative, the fields are written there with checks.
template <class Fields, class Entry>
[[gnu::noinline]] int32_t WrapByParts(const GpbFragment& kind, Fields fields, GpbScratch& scratch, const Entry* entry,
                                      int32_t body, uint8_t* out, uint32_t room) {
  if (body < 0) body = EncodeGpbFields(fields, entry, scratch.body, sizeof(scratch.body));
  if (body < 0) return body;
  const int32_t wrapped =
      SAVRO_TARQ_GPB_EncodeLengthDelimited(1, scratch.body, body, scratch.entry, sizeof(scratch.entry));
  if (wrapped < 0) return wrapped;
  return SAVRO_TARQ_GPB_EncodeLengthDelimited(kind.container, scratch.entry, wrapped, out, room);
}

/// Encodes the record's `fields`: in place where there is ample room; near the buffer's end, or when a text is long, by
/// parts.
template <class Fields, class Entry>
int32_t EncodeGpbFragment(const GpbFragment& kind, Fields fields, GpbScratch& scratch, const Entry* entry, uint8_t* out,
                          uint32_t room) {
  if (out == nullptr || room == 0) return kEncodeNoRoom;
  constexpr uint32_t kLargestRoom = 0x7FFFFFFF;  // the primitives know no larger ones
  const uint32_t ample = kind.usualHeader + kind.largestBody + kPutSlack;
  const bool inPlace = room >= ample && room <= kLargestRoom;
  uint8_t* const start = inPlace ? out + kind.usualHeader : scratch.body;
  UncheckedGpb run(start);
  fields(run, *entry);
  if (inPlace && !run.failed()) return WrapInPlace(kind, out, run.end());
  const auto body = run.failed() ? -1 : static_cast<int32_t>(run.end() - start);
  return WrapByParts(kind, fields, scratch, entry, body, out, room);
}

}  // namespace tarq
