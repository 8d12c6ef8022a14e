// What one could use instead of the module's encoders, over the same records. Each writes one record's fragment at
// `out`, which has ample room, and returns its length. Address texts come from the module's own conversions.
#pragma once

#include <cstddef>

#include "platform/message.h"

namespace tarq::bench {

/// GPB by a library that writes fields straight to a buffer, in the module's order.
size_t Protozero(const FlowEntry& entry, char* out);
size_t Protozero(const FlowHopEntry& entry, char* out);
size_t Protozero(const NativeIpEntry& entry, char* out);

/// GPB by generated code, its message object reused. Writes fields in the order of their numbers and leaves zeros out.
size_t Protobuf(const FlowEntry& entry, char* out);
size_t Protobuf(const FlowHopEntry& entry, char* out);
size_t Protobuf(const NativeIpEntry& entry, char* out);

/// JSON by a format library, formats compiled, without bounds.
size_t Fmt(const FlowEntry& entry, char* out);
size_t Fmt(const FlowHopEntry& entry, char* out);
size_t Fmt(const NativeIpEntry& entry, char* out);

/// JSON by the C library, from the module's templates.
size_t Snprintf(const FlowEntry& entry, char* out);
size_t Snprintf(const FlowHopEntry& entry, char* out);
size_t Snprintf(const NativeIpEntry& entry, char* out);

}  // namespace tarq::bench
