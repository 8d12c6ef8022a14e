// Text from elsewhere, made safe for terminals and log lines.
#pragma once

#include <string>
#include <string_view>

namespace tarq::host {

/// Makes one line of valid UTF-8 that cannot steer a terminal: control characters (C0, DEL, C1), line separators,
/// zero-width and bidirectional controls, and bytes that are not UTF-8 come as '?'.
std::string Printable(std::string_view text);

}  // namespace tarq::host
