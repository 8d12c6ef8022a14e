// The file that tells scripts the channel's port.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tarq::host {

/// Holds the port as decimal text while messages are taken.
class PortFile {
 public:
  /// Removes the file that an earlier run left at `file`. Throws `std::runtime_error` with value and remedy where
  /// something other than a regular file has that name, or where no file can be made.
  explicit PortFile(std::filesystem::path file);

  /// Writes the port under a temporary name first, so that the file appears complete. Throws as above.
  void Write(uint16_t port);

  /// Removes the file, unless another process has put its own port there since.
  void Remove();

 private:
  std::filesystem::path file_;
  uint16_t port_ = 0;
};

}  // namespace tarq::host
