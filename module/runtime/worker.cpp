#include "runtime/worker.h"

#include <atomic>

#include "frame/log.h"
#include "platform/event_loop.h"
#include "platform/task.h"

namespace tarq {
namespace {

struct {
  std::atomic<uint32_t> epollId{kNoId};  ///< set and cleared on the framework's thread, read on the worker's too
  uint32_t statsTaskId = 0;              ///< only logged
} g_worker;

}  // namespace

uint32_t SAVRO_TARQ_THREAD_CreateEpoll() {
  const int32_t epollFd = WUX_EPOLL_Create(0);
  if (epollFd < 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_THREAD_InitEpoll] Epoll create failed, epollFd: %d.", epollFd);
    return 1;
  }
  g_worker.epollId = static_cast<uint32_t>(epollFd);
  return 0;
}

uint32_t SAVRO_TARQ_THREAD_CreateStatsTask() {
  uint32_t taskId = 0;
  uint8_t arguments[32] = {};
  const uint32_t ret = JEV_TaskCreate("SAVRO_TARQ_STATS", &taskId, SAVRO_TARQ_THREAD_StatsMain, 1, 0, 0, arguments);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_THREAD_CreateStatsTask] TaskCreate failed. ret: %d.", ret);
    return 1;
  }
  g_worker.statsTaskId = taskId;
  TARQ_LOG(kLogMilestone, "[%s:%d][TARQ_THREAD_CreateStatsTask] Create task success, taskId: %d.", taskId);
  return 0;
}

uint32_t SAVRO_TARQ_THREAD_Init() {
  uint32_t ret = SAVRO_TARQ_THREAD_CreateEpoll();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_THREAD_Init] Create Epoll failed. ret: %d.", ret);
    return 1;
  }
  ret = SAVRO_TARQ_THREAD_CreateStatsTask();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_THREAD_Init] Create stats task failed. ret: %d.", ret);
    return 1;
  }
  return 0;
}

uint32_t SAVRO_TARQ_THREAD_StatsMain(void* /*arguments*/) {
  TARQ_LOG(kLogMilestone, "[%s:%d][TARQ_THREAD_StatsMain] Start run savro tarq stats thread.");
  return WUX_EPOLL_Run(g_worker.epollId, 5, -1);
}

uint32_t SAVRO_TARQ_THREAD_GetEpollId() { return g_worker.epollId; }

uint32_t SAVRO_TARQ_THREAD_Destroy() {
  if (g_worker.epollId == kNoId) return 0;
  const uint32_t ret = WUX_EPOLL_Destroy(g_worker.epollId);
  g_worker.epollId = kNoId;
  return ret;
}

}  // namespace tarq
