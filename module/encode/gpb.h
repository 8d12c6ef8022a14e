// The protocol-buffer wire encoding: varints, field keys, integer, text and length-delimited fields. Stateless.
//
// Every operation writes at `out`, which has `room` bytes, and returns the bytes written. Otherwise -2: `out` is null,
// the room is 0 or 2^31 and more, or the item does not fit; -1: a payload could not be copied. Bytes written before a
// failure stay but do not count. Failures of fields are logged.
#pragma once

#include <cstdint>

#include "encode/encoders.h"
#include "export.h"

namespace tarq {

enum WireType : uint32_t { kWireVarint = 0, kWireLengthDelimited = 2 };

TARQ_EXPORT int32_t SAVRO_TARQ_GPB_EncodeVarint(uint64_t value, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_GPB_EncodeFieldType(uint32_t fieldId, uint32_t wireType, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_GPB_EncodeLengthDelimited(uint32_t fieldId, const void* payload, int32_t length,
                                                         uint8_t* out, uint32_t room);
/// `text` is terminated; the terminator is not written. A null text is -1.
TARQ_EXPORT int32_t SAVRO_TARQ_GPB_EncodeString(uint32_t fieldId, const char* text, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_GPB_EncodeInterger(uint32_t fieldId, uint64_t value, uint8_t* out, uint32_t room);

/// A run of fields and steps, one behind the other. The first failure sticks and is the run's result; nothing is
/// written after it.
class GpbRun {
 public:
  GpbRun(uint8_t* out, uint32_t room) : out_(out), room_(room) {}

  GpbRun& Integer(uint32_t fieldId, uint64_t value) {
    return result_ < 0 ? *this : Add(SAVRO_TARQ_GPB_EncodeInterger(fieldId, value, out_, room_));
  }
  GpbRun& Text(uint32_t fieldId, const char* text) {
    return result_ < 0 ? *this : Add(SAVRO_TARQ_GPB_EncodeString(fieldId, text, out_, room_));
  }
  template <class Entry>
  GpbRun& Step(int32_t (*step)(const Entry* entry, uint8_t* out, uint32_t room), const Entry* entry) {
    return result_ < 0 ? *this : Add(step(entry, out_, room_));
  }

  /// Bytes written, or the first failure.
  int32_t Result() const { return result_; }

 private:
  GpbRun& Add(int32_t written) {
    if (written < 0) {
      result_ = written;
      return *this;
    }
    out_ += written;
    room_ -= static_cast<uint32_t>(written);
    result_ += written;
    return *this;
  }

  uint8_t* out_;
  uint32_t room_;
  int32_t result_ = 0;
};

/// Where a kind's record body and its wrapped list entry lie between the steps of one call.
struct GpbScratch {
  uint8_t body[1024];
  uint8_t entry[1024];
};

/// A fragment: field `container` of the top-level message, holding field 1, one list entry, holding the body.
template <class Entry>
int32_t EncodeGpbFragment(uint32_t container, int32_t (*encodeBody)(const Entry* entry, uint8_t* out, uint32_t room),
                          GpbScratch& scratch, const Entry* entry, uint8_t* out, uint32_t room) {
  if (out == nullptr || room == 0) return kEncodeNoRoom;
  const int32_t body = encodeBody(entry, scratch.body, sizeof(scratch.body));
  if (body < 0) return body;
  const int32_t wrapped =
      SAVRO_TARQ_GPB_EncodeLengthDelimited(1, scratch.body, body, scratch.entry, sizeof(scratch.entry));
  if (wrapped < 0) return wrapped;
  return SAVRO_TARQ_GPB_EncodeLengthDelimited(container, scratch.entry, wrapped, out, room);
}

}  // namespace tarq
