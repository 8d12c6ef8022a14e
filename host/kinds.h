// The three kinds of statistics that can be subscribed to.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/message.h"

namespace tarq::host {

struct Kind {
  std::string_view name;  ///< short name, as users write it
  std::string_view path;  ///< sample path
  uint32_t msgId;         ///< identifier of its statistics messages
};

inline constexpr std::array<Kind, 3> kKinds{{
    {"native-ip", "quorin-tarq:tarq/quorin-tarq-statistics:flow-native-ip-statistics/flow-native-ip-statistic",
     kNativeIpMsgId},
    {"flow", "quorin-tarq:tarq/quorin-tarq-statistics:flow-statistics/flow-statistic", kFlowMsgId},
    {"flow-hop", "quorin-tarq:tarq/quorin-tarq-statistics:flow-hop-statistics/flow-hop-statistic", kFlowHopMsgId},
}};

/// Finds a kind by its short name or its sample path; null when `text` is neither.
const Kind* FindKind(std::string_view text);

}  // namespace tarq::host
