#include "platform/bounded.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tarq {
namespace {

bool Overlap(const void* left, const void* right, size_t count) {
  const auto a = reinterpret_cast<uintptr_t>(left);
  const auto b = reinterpret_cast<uintptr_t>(right);
  return (a < b ? b - a : a - b) < count;
}

}  // namespace

int memcpy_s(void* destination, size_t capacity, const void* source, size_t count) {
  if (destination == nullptr || source == nullptr || count > capacity) return 1;
  if (Overlap(destination, source, count)) return 1;
  std::memcpy(destination, source, count);
  return 0;
}

int memset_s(void* destination, size_t capacity, int value, size_t count) {
  if (destination == nullptr || count > capacity) return 1;
  std::memset(destination, value, count);
  return 0;
}

int sprintf_s(char* destination, size_t capacity, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsprintf_s(destination, capacity, format, arguments);
  va_end(arguments);
  return length;
}

int vsprintf_s(char* destination, size_t capacity, const char* format, va_list arguments) {
  if (destination == nullptr || capacity == 0 || format == nullptr) return -1;
  const int length = std::vsnprintf(destination, capacity, format, arguments);
  if (length >= 0 && static_cast<size_t>(length) < capacity) return length;
  destination[0] = '\0';
  return -1;
}

}  // namespace tarq
