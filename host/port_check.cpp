#include "host/port_check.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tarq::host {
namespace {

/// Returns 0, or the `errno` of what failed.
int TryToBind(uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  int reuse = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  int error = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 ? 0 : errno;
  close(fd);
  return error;
}

std::string ReasonFor(int error) {
  if (error == EADDRINUSE) return "is taken; name another with --port, or 0";
  if (error == EACCES) return "is for privileged processes; name a higher one with --port, or add CAP_NET_BIND_SERVICE";
  return "cannot be used: " + std::generic_category().message(error) + "; name another with --port, or 0";
}

}  // namespace

void CheckPort(uint16_t port) {
  if (int error = TryToBind(port)) {
    throw std::runtime_error(fmt::format("port {} of 127.0.0.1 {}", port, ReasonFor(error)));
  }
}

}  // namespace tarq::host
