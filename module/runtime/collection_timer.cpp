#include "runtime/collection_timer.h"

#include "frame/buffers.h"
#include "frame/log.h"
#include "platform/timer.h"
#include "runtime/event_queue.h"
#include "runtime/worker.h"

namespace tarq {
namespace {

constexpr uint32_t kTickMs = 1000;
constexpr uint32_t kTicksPerCycle = 3;

struct {
  uint32_t timerId = kNoId;
  uint32_t timerSecondCnt = 0;
} g_timer;

struct StatsEvent {
  EventRecord header;
  uint32_t timerSecondCnt;
};
static_assert(sizeof(StatsEvent) == 12);

}  // namespace

uint32_t SAVRO_TARQ_STATS_CreateTimer() {
  const int32_t timerId =
      WUX_TIMER_Create(kTickMs, SAVRO_TARQ_STATS_TimerCallback, nullptr, SAVRO_TARQ_THREAD_GetEpollId());
  if (timerId < 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_TIMER_Create] create timer failed, timerId: %d.", timerId);
    return 1;
  }
  g_timer.timerId = static_cast<uint32_t>(timerId);
  if (WUX_TIMER_SetName(g_timer.timerId, "WUX_TARQ_StatsTimer") != 0) {
    SAVRO_TARQ_STATS_DestroyTimer();
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_CreateTimer] set timer name fail.");
    return 1;
  }
  return 0;
}

uint32_t SAVRO_TARQ_STATS_TimerCallback(void* /*context*/) {
  ++g_timer.timerSecondCnt;
  if (g_timer.timerSecondCnt % kTicksPerCycle != 0) return 0;
  const uint32_t ret = SAVRO_TARQ_STATS_PushStatsEventToQue(g_timer.timerSecondCnt);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_STATS_TimerCallback] push stats event to queue failed, ret: %u.", ret);
  }
  return 0;
}

uint32_t SAVRO_TARQ_STATS_GetTimerSecondCnt() { return g_timer.timerSecondCnt; }

uint32_t SAVRO_TARQ_STATS_PushStatsEventToQue(uint32_t timerSecondCnt) {
  auto* event = static_cast<StatsEvent*>(SAVRO_TARQ_BufAlloc(sizeof(StatsEvent)));
  if (event == nullptr) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_PushStatsEventToQu] Alloc memory failed, timerSecondCnt: %u.",
             timerSecondCnt);
    return 1;
  }
  event->header = {SAVRO_TARQ_EVT_STATS, sizeof(event->timerSecondCnt)};
  event->timerSecondCnt = timerSecondCnt;
  const uint32_t ret = SAVRO_TARQ_EVENT_Push(&event->header);
  if (ret != 0) {
    TARQ_LOG(kLogFailure,
             "[%s:%d][NTVTARQ_STATS_PushStatsEventToQu] push task to event queue failed, timerSecondCnt: %u, ret: %u.",
             timerSecondCnt, ret);
    SAVRO_TARQ_BufFree(event);
  }
  return 0;
}

void SAVRO_TARQ_STATS_DestroyTimer() {
  WUX_TIMER_Destroy(g_timer.timerId);
  g_timer.timerId = kNoId;
}

}  // namespace tarq
