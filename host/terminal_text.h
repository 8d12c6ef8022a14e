// One sample as a few lines for people.
#pragma once

#include <string>

#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

/// Records of a sample that are shown; the rest is counted.
inline constexpr int kShownRecords = 3;

/// Makes a line with local time, kind, encoding, records and bytes, then an indented line for each of the first
/// `kShownRecords` records. A sample that cannot be decoded says so in place of its records; of a malformed JSON
/// document the beginning is shown. Texts from the data plane are made printable.
std::string TerminalText(const Subscription& subscription, const standin::Sample& sample);

}  // namespace tarq::host
