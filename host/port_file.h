// The file that tells scripts the channel's port.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tarq::host {

/// Writes the port as decimal text to `file`, under a temporary name first, so that the file appears complete.
/// Throws `std::runtime_error` with value and remedy.
void WritePortFile(const std::filesystem::path& file, uint16_t port);

}  // namespace tarq::host
