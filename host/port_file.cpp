#include "host/port_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace tarq::host {

void WritePortFile(const std::filesystem::path& file, uint16_t port) {
  std::filesystem::path temporary = file.string() + fmt::format(".{}.tmp", getpid());
  std::ofstream stream(temporary);
  stream << port << '\n';
  stream.close();
  std::error_code error;
  if (!stream) error.assign(errno, std::generic_category());
  if (!error) std::filesystem::rename(temporary, file, error);
  if (!error) return;
  std::error_code ignored;
  std::filesystem::remove(temporary, ignored);
  throw std::runtime_error(
      fmt::format("port file \"{}\" cannot be written: {}; name a writable one", file.string(), error.message()));
}

}  // namespace tarq::host
