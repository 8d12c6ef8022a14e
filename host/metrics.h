// The books in the Prometheus text format.
#pragma once

#include <string>

#include "host/accounts.h"

namespace tarq::host {

/// Makes the exposition, version 0.0.4 of the text format: every count of `accounts`, and the process's own memory,
/// processor time and start time under their usual names.
std::string MetricsText(const Accounts& accounts);

}  // namespace tarq::host
