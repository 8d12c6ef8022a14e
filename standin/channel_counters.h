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
  void AddReceived(const MessageDescriptor& message) {
    std::lock_guard lock(mutex_);
    ++counters_.messages;
    counters_.bytes += message.msgLen;
  }
  void Add(const MessageDescriptor& message, uint64_t MessageOutcomes::*outcome) {
    std::lock_guard lock(mutex_);
    auto& byId = counters_.byId;
    const bool counted = byId.size() < kMaxCountedIds || byId.contains(message.msgId);
    MessageOutcomes& outcomes = counted ? byId[message.msgId] : counters_.otherIds;
    ++(outcomes.*outcome);
  }
  ChannelCounters Get() const {
    std::lock_guard lock(mutex_);
    return counters_;
  }

 private:
  /// The kinds have their places from the start, however many other identifiers come first.
  static ChannelCounters WithKinds() {
    ChannelCounters counters;
    for (const uint32_t msgId : {kNativeIpMsgId, kFlowMsgId, kFlowHopMsgId}) counters.byId[msgId];
    return counters;
  }

  mutable std::mutex mutex_;
  ChannelCounters counters_ = WithKinds();
};

inline ChannelTotals& Totals() {
  static auto* const totals = new ChannelTotals;
  return *totals;
}

}  // namespace tarq::standin
