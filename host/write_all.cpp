#include "host/write_all.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace tarq::host {

int WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t written = write(fd, data.data(), data.size());
    if (written < 0 && errno == EAGAIN) {
      pollfd ready{fd, POLLOUT, 0};
      poll(&ready, 1, -1);
    } else if (written < 0 && errno != EINTR) {
      return errno;
    }
    if (written > 0) data.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

}  // namespace tarq::host
