#include "intake/channel_server.h"

#include <arpa/inet.h>

#include "frame/buffers.h"
#include "frame/log.h"
#include "platform/message.h"
#include "runtime/stats_queue.h"
#include "runtime/worker.h"
#include "tasks/task_registry.h"

namespace tarq {
namespace {

constexpr uint16_t kPort = 0xE37A;
constexpr uint32_t kChannelParameter = 25;

struct {
  uint64_t handle = 0;  ///< 0 when no server runs
} g_server;

/// Returns room for a message of `msgLen` payload bytes, or null.
StatsMessage* NewStatsMessage(uint32_t msgLen) {
  if (msgLen > UINT32_MAX - sizeof(StatsMessage)) return nullptr;
  return static_cast<StatsMessage*>(SAVRO_TARQ_BufAlloc(msgLen + sizeof(StatsMessage)));
}

}  // namespace

uint32_t SAVRO_TARQ_STATS_IPC_Init() {
  uint32_t ret = SAVRO_TARQ_STATS_IPC_InitServer();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_IPC_Init] IPC_InitSocket failed, ret: %u.", ret);
    return 1;
  }
  ret = ntvtarq_recv_init();
  if (ret != 0) TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_IPC_Init] recv_init failed, ret: %u.", ret);
  TARQ_LOG(kLogMilestone, "[%s:%d][NTVTARQ_STATS_IPC_Init] success.");
  return 0;
}

uint32_t SAVRO_TARQ_STATS_IPC_Destroy() { return SAVRO_TARQ_STATS_IPC_DestroyServer(); }

uint32_t SAVRO_TARQ_STATS_IPC_InitServer() {
  const ChannelEndpoint loopback = {inet_addr("127.0.0.1"), kPort, 0};
  ChannelConfig config = {};
  config.local = loopback;
  config.peer = loopback;
  config.parameter = kChannelParameter;
  config.epollId = SAVRO_TARQ_THREAD_GetEpollId();
  config.onReceive = SAVRO_TARQ_STATS_IPC_RecvMsgProc;
  uint64_t handle = 0;
  const uint32_t ret = WUX_CHAN_UCServer("SAVRO_TARQ", 0, &config, &handle);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_IPC_InitServer] UCServer ret: %u.", ret);
    return 1;
  }
  g_server.handle = handle;
  TARQ_LOG(kLogMilestone, "[%s:%d][NTVTARQ_STATS_IPC_InitServer] success.");
  return 0;
}

uint32_t SAVRO_TARQ_STATS_IPC_DestroyServer() {
  if (g_server.handle == 0) return 0;
  const uint32_t ret = WUX_CHAN_UCServerDestory(g_server.handle);
  g_server.handle = 0;
  return ret;
}

uint32_t SAVRO_TARQ_STATS_IPC_RecvMsgProc(void* /*context*/, const MessageDescriptor* messages, uint32_t count) {
  if (messages == nullptr || count == 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][STATS_IPC_RecvMsgProc] Revc msg is null.");
    return 1;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const MessageDescriptor& message = messages[i];
    if (SAVRO_TARQ_TASK_HasTlmTask(message.msgId) == 0) break;
    SAVRO_TARQ_STATS_IPC_PushMsgToStatsQue(message.msgId, message.payload, message.msgLen);
  }
  return 0;
}

void SAVRO_TARQ_STATS_IPC_PushMsgToStatsQue(uint32_t msgId, const void* payload, uint32_t msgLen) {
  if (payload == nullptr || msgLen == 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_IPC_PushMsgToStatsQue] invalid param, msgLen: %u,", msgLen);
    return;
  }
  StatsMessage* message = NewStatsMessage(msgLen);
  if (message == nullptr || memcpy_s(message->payload(), msgLen, payload, msgLen) != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_IPC_PushMsgToStatsQue] Buff alloc failed buff is NULL, msgLen: %u,",
             msgLen);
    SAVRO_TARQ_BufFree(message);
    return;
  }
  *message = {msgId, msgLen};
  const uint32_t ret = SAVRO_TARQ_STATS_QUE_Push(message);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_IPC_PushMsgToStatsQue] Push msg to task queue failed, %u.", ret);
    SAVRO_TARQ_BufFree(message);
  }
}

}  // namespace tarq
