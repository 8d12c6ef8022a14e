#pragma once

#include <cstddef>
#include <cstring>

namespace tarq {

/// A record's fixed-size text field as a terminated text: the field itself, or all of it copied when it lacks a
/// terminator.
template <size_t N>
class FieldText {
 public:
  explicit FieldText(const char (&field)[N]) : text_(field) {
    if (memchr(field, '\0', N) != nullptr) return;
    memcpy(copy_, field, N);
    copy_[N] = '\0';
    text_ = copy_;
  }
  FieldText(const FieldText&) = delete;
  FieldText& operator=(const FieldText&) = delete;

  /// Valid as long as this object and the record.
  const char* Text() const { return text_; }

 private:
  const char* text_;
  char copy_[N + 1];
};

}  // namespace tarq
