// The channel's counters, over all servers.
#pragma once

#include <mutex>

#include "platform/channel.h"
#include "platform/message.h"
#include "standin/standin.h"

namespace tarq::standin {

/// Any thread may call any function.
class ChannelTotals {
 public:
  void Add(uint64_t ChannelCounters::*counter) {
    std::lock_guard lock(mutex_);
    ++(counters_.*counter);
  }
  void Add(const std::vector<MessageDescriptor>& batch) {
    std::lock_guard lock(mutex_);
    counters_.messages += batch.size();
    for (const MessageDescriptor& message : batch) {
      counters_.bytes += message.msgLen;
      auto& byId = counters_.messagesById;
      if (byId.size() < kMaxCountedIds || byId.contains(message.msgId)) ++byId[message.msgId];
    }
  }
  ChannelCounters Get() const {
    std::lock_guard lock(mutex_);
    return counters_;
  }

 private:
  mutable std::mutex mutex_;
  /// The kinds have their places from the start, however many other identifiers come first.
  ChannelCounters counters_{.messagesById = {{kNativeIpMsgId, 0}, {kFlowMsgId, 0}, {kFlowHopMsgId, 0}}};
};

inline ChannelTotals& Totals() {
  static auto* const totals = new ChannelTotals;
  return *totals;
}

}  // namespace tarq::standin
