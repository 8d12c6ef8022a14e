// The summary at the end of a run.
#pragma once

#include <string>

#include "host/accounts.h"

namespace tarq::host {

/// Makes the aligned, many-lined text for people. Its last part names every loss, or says that there was none.
std::string SummaryText(const Accounts& accounts);

}  // namespace tarq::host
