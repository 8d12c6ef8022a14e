// One sample as a line of JSON.
#pragma once

#include <string>

#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

/// Makes one line, its line break included: an object of path, tlm_id, task_id, collect_timestamp, active_report_end,
/// record_count, encoding and data, in this order. `data` is the sample's own JSON document, byte for byte, or base64
/// text of a GPB sample. A JSON sample that is no valid JSON on a single line comes as a string, bytes that are not
/// UTF-8 replaced, and a last member `"malformed":true` says so.
std::string JsonLine(const Subscription& subscription, const standin::Sample& sample);

}  // namespace tarq::host
