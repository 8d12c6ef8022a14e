// Writing whole texts to a file descriptor.
#pragma once

#include <string_view>

namespace tarq::host {

/// Writes all of `data`, blocking as long as it takes, also where the descriptor itself does not block. Returns 0, or
/// the `errno` of the write that failed; some of the data may have been written then.
int WriteAll(int fd, std::string_view data);

}  // namespace tarq::host
