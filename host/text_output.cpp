#include "host/text_output.h"

#include <cerrno>
#include <system_error>

#include "host/write_all.h"

namespace tarq::host {

WriteResult TextOutput::Write(const Subscription& subscription, const standin::Sample& sample) {
  int error = WriteAll(fd_, text_(subscription, sample));
  if (error == 0) return {};
  std::string reason = error == EPIPE ? "the reader is gone" : std::generic_category().message(error);
  return {WriteResult::Outcome::kGone, reason};
}

}  // namespace tarq::host
