#pragma once

#include <cstdint>

#include "encode/encoders.h"
#include "platform/bounded.h"

namespace tarq {

/// A run of JSON pieces, one behind the other. The first that does not fit or cannot be formatted fails the run;
/// nothing is written after it.
class JsonRun {
 public:
  JsonRun(char* out, uint32_t room) : out_(out), room_(room) {}

  JsonRun& Text(const char* text) { return Format("%s", text); }

  template <class... Arguments>
  JsonRun& Format(const char* format, Arguments... arguments) {
    return failed_ ? *this : Add(sprintf_s(out_ + written_, room_ - written_, format, arguments...));
  }
  template <class Entry>
  JsonRun& Step(int32_t (*step)(const Entry* entry, char* out, uint32_t room), const Entry* entry) {
    return failed_ ? *this : Add(step(entry, out_ + written_, room_ - written_));
  }

  /// Goes back onto the last character written, which the next piece then overwrites.
  JsonRun& StepBack() {
    if (written_ > 0) --written_;
    return *this;
  }

  /// Bytes written, or -1.
  int32_t Result() const { return failed_ ? kEncodeFailed : static_cast<int32_t>(written_); }

 private:
  JsonRun& Add(int32_t written) {
    if (written < 0) {
      failed_ = true;
    } else {
      written_ += static_cast<uint32_t>(written);
    }
    return *this;
  }

  char* out_;
  uint32_t room_;
  uint32_t written_ = 0;
  bool failed_ = false;
};

}  // namespace tarq
