// What the meter says at its end.
#pragma once

#include <string>

#include "meter/pipeline.h"

namespace tarq::meter {

/// Packets, periods and messages, in a few lines.
std::string Summary(const PacketCounters& packets, const Reporter& reporter, const Sender& sender);

/// Whether every packet that could be metered was, and every message was sent and confirmed.
bool IsComplete(const PacketCounters& packets, const Sender& sender);

}  // namespace tarq::meter
