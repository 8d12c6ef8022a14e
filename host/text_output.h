// Samples as text on a file descriptor, for programs (JSON lines) or for people (a terminal).
#pragma once

#include <string>
#include <utility>

#include "host/output.h"

namespace tarq::host {

/// Writes each sample's text to a descriptor. A failed write is the end of it: half a text may be out already.
class TextOutput : public Output {
 public:
  /// `fd` stays the caller's and open.
  TextOutput(int fd, std::string name, SampleText text) : fd_(fd), name_(std::move(name)), text_(std::move(text)) {}

  WriteResult Write(const Subscription& subscription, const standin::Sample& sample) override;
  std::string name() const override { return name_; }

 private:
  int fd_;
  std::string name_;
  SampleText text_;
};

}  // namespace tarq::host
