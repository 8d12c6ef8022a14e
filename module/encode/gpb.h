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

}  // namespace tarq
