// Owners of kernel objects.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

namespace tarq::standin {

/// Owns a file descriptor, or none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }

  bool valid() const { return fd_ >= 0; }
  int get() const { return fd_; }

 private:
  int fd_;
};

/// A flag that an event loop can wait for: readable from `Raise` to `Clear`.
class Signal {
 public:
  bool valid() const { return fd_.valid(); }
  int fd() const { return fd_.get(); }
  void Raise() { eventfd_write(fd_.get(), 1); }
  void Clear() {
    eventfd_t count;
    eventfd_read(fd_.get(), &count);
  }

 private:
  FileDescriptor fd_{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
};

}  // namespace tarq::standin
