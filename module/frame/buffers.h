// Buffers that cross a queue or a thread: all come from the framework and go back to it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "export.h"
#include "platform/bounded.h"

namespace tarq {

/// Returns a buffer of `size` bytes, not cleared, or null when the framework has none to give. The caller owns it and
/// releases it with `SAVRO_TARQ_BufFree`. Any thread.
TARQ_EXPORT void* SAVRO_TARQ_BufAlloc(uint32_t size);

/// The same, with `size` zero bytes.
TARQ_EXPORT void* SAVRO_TARQ_BufAllocZero(uint32_t size);

/// Releases a buffer of the two above; nothing for null. Any thread.
TARQ_EXPORT void SAVRO_TARQ_BufFree(void* buffer);

/// Copies `count` bytes into room for `capacity`; 0 on success. A copy of nothing succeeds even into no room, which
/// `memcpy_s` need not grant.
inline int CopyBounded(void* destination, size_t capacity, const void* source, size_t count) {
  return count == 0 ? 0 : memcpy_s(destination, capacity, source, count);
}

}  // namespace tarq
