// The record encoders, two per kind. Each writes one fragment, one record, at `out` and returns its length in bytes.
// Otherwise -1: the record cannot be encoded, or a parameter is null, which is logged. -2: no room, try an emptier
// buffer. What a failed call may have written is not part of anything. Worker thread only.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/message.h"

namespace tarq {

inline constexpr int32_t kEncodeFailed = -1;
inline constexpr int32_t kEncodeNoRoom = -2;

/// A field of the sample's top-level message, field number 8, 2 or 3, that wraps one list entry: fragments back to back
/// read as one message.
TARQ_EXPORT int32_t SAVRO_NTVTARQ_GPB_EncodeMsg(const NativeIpEntry* entry, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_GPB_EncodeMsg(const FlowEntry* entry, uint8_t* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_GPB_EncodeMsg(const FlowHopEntry* entry, uint8_t* out, uint32_t room);

/// "{", the record's members and "},". Texts are inserted as they are, without escaping. Needs room for a largest
/// record: 961, 1197 and 839 bytes; with less the result is -2.
TARQ_EXPORT int32_t SAVRO_NTVTARQ_JSON_EncodeMsg(const NativeIpEntry* entry, char* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_FLOW_JSON_EncodeMsg(const FlowEntry* entry, char* out, uint32_t room);
TARQ_EXPORT int32_t SAVRO_TARQ_FLOWHOP_JSON_EncodeMsg(const FlowHopEntry* entry, char* out, uint32_t room);

/// The printf templates of the members, which fix their order.
TARQ_EXPORT const char* const SAVRO_NTVTARQ_STATS_JSON_TEMPLATE;
TARQ_EXPORT const char* const SAVRO_TARQ_FLOW_STATS_JSON_TEMPLATE;
TARQ_EXPORT const char* const SAVRO_TARQ_FLOWHOP_STATS_JSON_TEMPLATE;

}  // namespace tarq
