#include "load/reader.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

namespace tarq::load {

Reader::Reader(std::string path, Format format)
    : path_(std::move(path)), format_(format), listener_(socket(AF_UNIX, SOCK_STREAM, 0)) {
  sockaddr_un address{AF_UNIX, ""};
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  unlink(path_.c_str());
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener_, 1) != 0) {
    throw std::system_error(errno, std::generic_category(), path_);
  }
  thread_ = std::thread([this] { Run(); });
}

Reader::~Reader() {
  ends_ = true;
  Stall(false);
  shutdown(listener_, SHUT_RDWR);
  shutdown(connection_, SHUT_RDWR);
  thread_.join();
  close(listener_);
  unlink(path_.c_str());
}

void Reader::Stall(bool stalled) {
  std::lock_guard lock(mutex_);
  stalled_ = stalled;
  goOn_.notify_all();
}

void Reader::Run() {
  std::vector<char> buffer(256 << 10);
  while (!ends_) {
    const int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) continue;
    connection_ = connection;
    ssize_t count;
    while ((count = recv(connection, buffer.data(), buffer.size(), 0)) > 0) {
      Count({buffer.data(), static_cast<size_t>(count)});
      std::unique_lock lock(mutex_);
      goOn_.wait(lock, [this] { return !stalled_; });
    }
    connection_ = -1;
    close(connection);
  }
}

void Reader::Count(std::string_view bytes) {
  if (format_ == Format::kLines) {
    samples_ += static_cast<uint64_t>(std::ranges::count(bytes, '\n'));
    return;
  }
  while (!bytes.empty()) {
    const size_t skipped = std::min<uint64_t>(skip_, bytes.size());
    skip_ -= skipped;
    bytes.remove_prefix(skipped);
    if (skipped > 0 && skip_ == 0) ++samples_;
    if (bytes.empty()) return;
    length_ |= static_cast<uint64_t>(bytes.front() & 0x7F) << shift_;
    shift_ += 7;
    if ((bytes.front() & 0x80) == 0) skip_ = std::exchange(length_, 0), shift_ = 0;
    bytes.remove_prefix(1);
  }
}

}  // namespace tarq::load
