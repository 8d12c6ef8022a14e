#include "host/port_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace tarq::host {
namespace {

[[noreturn]] void Throw(const std::filesystem::path& file, const std::string& reason) {
  throw std::runtime_error(
      fmt::format("port file \"{}\" cannot be written: {}; name a writable one", file.string(), reason));
}

}  // namespace

PortFile::PortFile(std::filesystem::path file) : file_(std::move(file)) {
  std::error_code error;
  auto status = std::filesystem::symlink_status(file_, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) Throw(file_, "not a regular file");
  std::filesystem::remove(file_, error);
  auto directory = file_.has_parent_path() ? file_.parent_path() : ".";
  if (!error && access(directory.c_str(), W_OK) != 0) error.assign(errno, std::generic_category());
  if (error) Throw(file_, error.message());
}

void PortFile::Write(uint16_t port) {
  std::filesystem::path temporary = file_.string() + fmt::format(".{}.tmp", getpid());
  std::ofstream stream(temporary);
  stream << port << '\n';
  stream.close();
  std::error_code error;
  if (!stream) error.assign(errno, std::generic_category());
  if (!error) std::filesystem::rename(temporary, file_, error);
  port_ = port;
  if (!error) return;
  std::error_code ignored;
  std::filesystem::remove(temporary, ignored);
  Throw(file_, error.message());
}

void PortFile::Remove() {
  uint16_t found = 0;
  std::ifstream(file_) >> found;
  std::error_code ignored;
  if (port_ != 0 && found == port_) std::filesystem::remove(file_, ignored);
}

}  // namespace tarq::host
