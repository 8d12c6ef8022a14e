// GPB samples one after the other in a stream.
#pragma once

#include <string>

#include "host/subscriptions.h"
#include "standin/standin.h"

namespace tarq::host {

/// Makes a sample's length in bytes as a varint and then its bytes: protocol buffers' own format of delimited messages.
std::string Delimited(const Subscription& subscription, const standin::Sample& sample);

}  // namespace tarq::host
