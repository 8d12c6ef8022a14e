// The local channel's server: receives statistics messages and queues those that some task wants. Messages arrive on
// the worker thread.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/channel.h"

namespace tarq {

/// Starts the server, then sets up the message library's receiver, whose failure is only logged. 0, or 1 when the
/// server could not be started.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_IPC_Init();

/// Stops the server if one runs; the platform's result, or 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_IPC_Destroy();

/// The server alone, started and stopped.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_IPC_InitServer();
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_IPC_DestroyServer();

/// Receive callback: queues the batch's messages in order, up to the first whose kind has no task; that one and the
/// rest are dropped. Returns 1 for an empty batch, else 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_IPC_RecvMsgProc(void* context, const MessageDescriptor* messages, uint32_t count);

/// Queues a copy of one message. A message that is empty, too large or refused is logged and lost.
TARQ_EXPORT void SAVRO_TARQ_STATS_IPC_PushMsgToStatsQue(uint32_t msgId, const void* payload, uint32_t msgLen);

}  // namespace tarq
