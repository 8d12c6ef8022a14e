// Whether the channel can have its port.
#pragma once

#include <cstdint>

namespace tarq::host {

/// Tries a port of 127.0.0.1, any free one for 0. Throws `std::runtime_error` with value and remedy when it is taken or
/// not permitted.
void CheckPort(uint16_t port);

}  // namespace tarq::host
