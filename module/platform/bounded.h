// Bounded copies, fills and formatted writes: each takes the destination's capacity and fails rather than overrun it.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace tarq {
extern "C" {

/// Copies `count` bytes from `source` to `destination`, which has room for `capacity` bytes. The ranges may not
/// overlap. Returns 0, or non-zero with nothing useful in `destination` when a pointer is null or `count` exceeds
/// `capacity`. The module never calls it with a count of 0.
int memcpy_s(void* destination, size_t capacity, const void* source, size_t count);

/// Sets `count` bytes of `destination`, which has room for `capacity` bytes, to `value`.
/// Returns 0, or non-zero with nothing written when `destination` is null or `count` exceeds `capacity`.
int memset_s(void* destination, size_t capacity, int value, size_t count);

/// Writes the formatted text and its terminator to `destination`, which has room for `capacity` bytes, terminator
/// included. Returns the number of characters written, terminator not counted; negative when text and terminator do not
/// fit, when the format cannot be expanded, or when a pointer is null. After a failure the destination holds no usable
/// text.
int sprintf_s(char* destination, size_t capacity, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// As `sprintf_s`, with the arguments as a list.
int vsprintf_s(char* destination, size_t capacity, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

}  // extern "C"
}  // namespace tarq
