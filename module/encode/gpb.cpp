#include "encode/gpb.h"

#include <cstring>

#include "frame/buffers.h"
#include "frame/log.h"

// The line numbers in this file's log lines are part of their texts.

namespace tarq {

int32_t SAVRO_TARQ_GPB_EncodeVarint(uint64_t value, uint8_t* out, uint32_t room) {
  if (out == nullptr || static_cast<int32_t>(room) < 1) return kEncodeNoRoom;
  uint32_t written = 0;
  bool more = true;
  while (more) {
    if (written == room) return kEncodeNoRoom;
    out[written++] = static_cast<uint8_t>(value | 0x80);
    more = value > 0x7F;
    value >>= 7;
  }
  out[written - 1] &= 0x7F;
  return static_cast<int32_t>(written);
}

int32_t SAVRO_TARQ_GPB_EncodeFieldType(uint32_t fieldId, uint32_t wireType, uint8_t* out, uint32_t room) {
  const int32_t key = SAVRO_TARQ_GPB_EncodeVarint(fieldId << 3 | wireType, out, room);
  if (key < 0) {
    TARQ_LOG_AT(43, kLogFailure,
                "[%s:%d][TARQ_GPB_EncodeKey] Encode varint failed, fieldId: %u, wtiteType: %u, retLen: %d.", fieldId,
                wireType, key);
  }
  return key;
}

int32_t SAVRO_TARQ_GPB_EncodeLengthDelimited(uint32_t fieldId, const void* payload, int32_t length, uint8_t* out,
                                             uint32_t room) {
  const int32_t key = SAVRO_TARQ_GPB_EncodeFieldType(fieldId, kWireLengthDelimited, out, room);
  if (key < 0) {
    TARQ_LOG_AT(58, kLogFailure, "[%s:%d][TARQ_GPB_EncodeLengthDelimited] Encode field type failed, fieldId: %u.",
                fieldId);
    return key;
  }
  const int32_t prefix =
      SAVRO_TARQ_GPB_EncodeVarint(static_cast<uint64_t>(length), out + key, room - static_cast<uint32_t>(key));
  if (prefix < 0) {
    TARQ_LOG_AT(
        67, kLogFailure,
        "[%s:%d][TARQ_GPB_EncodeLengthDelimited] Encode string length failed, fieldId: %u, totalLen: %d, buffLen: %d.",
        fieldId, key, room);
    return prefix;
  }
  const int32_t total = key + prefix;
  const int32_t left = static_cast<int32_t>(room) - total;
  if (left < length) return kEncodeNoRoom;
  if (CopyBounded(out + total, static_cast<size_t>(left), payload, static_cast<size_t>(length)) != 0) {
    TARQ_LOG_AT(
        80, kLogFailure,
        "[%s:%d][TARQ_GPB_EncodeLengthDelimited] Memery copy failed, fieldId: %u, totalLen: %d, buffLen: %d, leftBuffLen: %d.",
        fieldId, total, room, left);
    return kEncodeFailed;
  }
  return total + length;
}

int32_t SAVRO_TARQ_GPB_EncodeString(uint32_t fieldId, const char* text, uint8_t* out, uint32_t room) {
  const int32_t ret = text == nullptr ? kEncodeFailed
                                      : SAVRO_TARQ_GPB_EncodeLengthDelimited(
                                            fieldId, text, static_cast<int32_t>(strlen(text)), out, room);
  if (ret < 0) {
    TARQ_LOG_AT(95, kLogFailure,
                "[%s:%d][TARQ_GPB_EncodeString] Encode string length failed, fieldId: %u, strVal: %s, buffLen: %d.",
                fieldId, text == nullptr ? "" : text, room);
  }
  return ret;
}

int32_t SAVRO_TARQ_GPB_EncodeInterger(uint32_t fieldId, uint64_t value, uint8_t* out, uint32_t room) {
  const int32_t key = SAVRO_TARQ_GPB_EncodeFieldType(fieldId, kWireVarint, out, room);
  if (key < 0) {
    TARQ_LOG_AT(108, kLogFailure, "[%s:%d][TARQ_GPB_EncodeInterge] Encode field type failed, fieldId: %u, val: %u",
                fieldId, static_cast<uint32_t>(value));
    return key;
  }
  const int32_t number = SAVRO_TARQ_GPB_EncodeVarint(value, out + key, room - static_cast<uint32_t>(key));
  if (number < 0) {
    TARQ_LOG_AT(115, kLogFailure, "[%s:%d][TARQ_GPB_EncodeInterge] Encode val failed, fieldId: %u, val: %u", fieldId,
                static_cast<uint32_t>(value));
    return number;
  }
  return key + number;
}

}  // namespace tarq
