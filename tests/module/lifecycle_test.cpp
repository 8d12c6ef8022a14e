#include <gmock/gmock.h>

#include "frame/buffers.h"
#include "frame/framework_binding.h"
#include "frame/log.h"
#include "frame/sample_paths.h"
#include "runtime/collection_timer.h"
#include "runtime/event_queue.h"
#include "runtime/stats_queue.h"
#include "runtime/worker.h"
#include "support/kinds.h"

namespace tarq::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

const std::vector<std::string> kResources = {"WUX_", "JEV_"};

TEST_F(ModuleTest, StartBuildsEverythingInOrderAndStopUndoesIntakeAndLoopOnce) {
  EXPECT_EQ(SAVRO_TARQ_Destory(), 0u);
  EXPECT_EQ(SAVRO_TARQ_THREAD_GetEpollId(), 0xFFFFFFFFu);
  EXPECT_THAT(platform.calls, IsEmpty()) << "nothing to tear down before the start";
  ASSERT_EQ(StartModule(), 0u);
  EXPECT_THAT(
      platform.Calls({"WUX_", "JEV_", "COMP_", "Sample", "ntvtarq"}),
      ElementsAre("COMP_GetVTable", "SampleXpathRegister", "SampleXpathRegister", "SampleXpathRegister",
                  "WUX_EPOLL_Create", "JEV_TaskCreate", "WUX_QUE_CreateNew", "WUX_QUE_EpollReg", "WUX_QUE_MonitorReg",
                  "WUX_QUE_CreateNew", "WUX_QUE_MonitorReg", "WUX_CHAN_UCServer", "ntvtarq_recv_init"));
  EXPECT_EQ(platform.taskEntry(nullptr), 111u) << "the worker runs the loop created at start";
  EXPECT_THAT(
      platform.Texts(kLogMilestone),
      ElementsAre("[TARQ_THREAD_CreateStatsTask] Create task success, taskId: 21.", "[TARQ_EVENT_Init] success.",
                  "[NTVTARQ_STATS_QUE_Create] success.", "[NTVTARQ_STATS_IPC_InitServer] success.",
                  "[NTVTARQ_STATS_IPC_Init] success.", "[TARQ_THREAD_StatsMain] Start run savro tarq stats thread."));
  platform.calls.clear();
  EXPECT_EQ(SAVRO_TARQ_Destory(), 0u);
  EXPECT_THAT(platform.calls, ElementsAre("WUX_CHAN_UCServerDestory", "WUX_QUE_Destory", "WUX_EPOLL_Destroy"));
  EXPECT_NE(platform.QueueNamed("SAVRO_TARQ_EVENT"), nullptr) << "the event queue stays";
  SAVRO_TARQ_Destory();
  EXPECT_EQ(platform.calls.size(), 3u) << "a second stop does nothing";
  EXPECT_EQ(SAVRO_TARQ_EVENT_Destroy(), 0u);
  EXPECT_EQ(SAVRO_TARQ_EVENT_Destroy(), 0u);
  EXPECT_EQ(platform.calls.size(), 4u);
}

TEST_F(StartedTest, QueuesChannelAndPathsAreSetUpAsThePlatformExpects) {
  const struct {
    const char* name;
    uint32_t depth, upper, lower;
  } kQueues[] = {{"SAVRO_TARQ_EVENT", 1024, 819, 204}, {"SavroNtvTarqStatsQue", 4096, 3276, 819}};
  for (const auto& expected : kQueues) {
    const Queue* queue = platform.QueueNamed(expected.name);
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(queue->kind, 6u);
    EXPECT_EQ(queue->depth, expected.depth);
    EXPECT_EQ(queue->elementSize, 8u);
    EXPECT_EQ(queue->monitor.upperThreshold, expected.upper);
    EXPECT_EQ(queue->monitor.lowerThreshold, expected.lower);
    EXPECT_EQ(queue->monitor.epollId, 11u);
  }
  uint8_t config[88] = {127, 0, 0, 1, 0x7A, 0xE3, 0, 0, 127, 0, 0, 1, 0x7A, 0xE3, 0, 0, 25, 0, 0, 0, 11};
  memcpy(config + 24, &platform.channel.onReceive, 8);
  EXPECT_EQ(memcmp(&platform.channel, config, sizeof(config)), 0);
  ASSERT_EQ(platform.paths.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    const auto& [path, registration] = platform.paths[i];
    EXPECT_STREQ(path,
                 std::vector<const char*>(
                     {"quorin-tarq:tarq/quorin-tarq-statistics:flow-native-ip-statistics/flow-native-ip-statistic",
                      "quorin-tarq:tarq/quorin-tarq-statistics:flow-statistics/flow-statistic",
                      "quorin-tarq:tarq/quorin-tarq-statistics:flow-hop-statistics/flow-hop-statistic"})[i]);
    EXPECT_EQ(std::string(path + strlen(path), 512 - strlen(path)), std::string(512 - strlen(path), '\0'));
    SamplePathRegistration expected{};
    expected.word32 = 10000;
    expected.bytes36[2] = 1;
    expected.word56 = 1;
    expected.query = SAVRO_TARQ_QueryFunc;
    expected.addTask = kKinds[i].add;
    expected.delTask = kKinds[i].del;
    EXPECT_EQ(memcmp(&registration, &expected, sizeof(expected)), 0) << path;
  }
}

struct StartFault {
  const char* call;
  int nth;
  uint32_t result;
  std::vector<std::string> log;       ///< all failure lines
  std::vector<std::string> teardown;  ///< platform calls after the failing one
};
void PrintTo(const StartFault& fault, std::ostream* out) { *out << fault.call; }
class FailedStart : public ModuleTest, public testing::WithParamInterface<StartFault> {};

TEST_P(FailedStart, IsLoggedReturnedAndUndone) {
  platform.Fail(GetParam().call, 1, GetParam().nth);
  EXPECT_EQ(StartModule(), GetParam().result);
  EXPECT_EQ(platform.Texts(kLogFailure), GetParam().log) << "without a table there is no log";
  const std::vector<std::string> calls = platform.Calls({"WUX_", "JEV_", "COMP_"});
  const auto& teardown = GetParam().teardown;
  ASSERT_GT(calls.size(), teardown.size());
  EXPECT_EQ(std::vector(calls.end() - teardown.size(), calls.end()), teardown);
  EXPECT_EQ(calls[calls.size() - teardown.size() - 1], GetParam().call);
  EXPECT_EQ(SAVRO_TARQ_THREAD_GetEpollId(), 0xFFFFFFFFu);
  TaskDescription description = Description(kCodeTypeGpb);
  platform.log.clear();
  SAVRO_TARQ_FLOW_AddTlmTask(1, 1, &description);
  EXPECT_EQ(platform.Texts(kLogFailure).empty(), platform.QueueNamed("SAVRO_TARQ_EVENT") || !SAVRO_TARQ_GetTlmFrmVtbl())
      << "no queue is kept that is not fully registered";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Steps, FailedStart, testing::Values(
    StartFault{"COMP_GetVTable", 1, 5, {}, {}},
    StartFault{"WUX_EPOLL_Create", 1, 1, {"[TARQ_THREAD_InitEpoll] Epoll create failed, epollFd: -3.", "[TARQ_THREAD_Init] Create Epoll failed. ret: 1.", "[TARQ_Init] thread init failed, ret: 1."}, {}},
    StartFault{"JEV_TaskCreate", 1, 1, {"[TARQ_THREAD_CreateStatsTask] TaskCreate failed. ret: 6.", "[TARQ_THREAD_Init] Create stats task failed. ret: 1.", "[TARQ_Init] thread init failed, ret: 1."}, {"WUX_EPOLL_Destroy"}},
    StartFault{"WUX_QUE_CreateNew", 1, 1, {"Create que failed !", "[TARQ_Init] Event init failed, ret: 1."}, {"WUX_EPOLL_Destroy"}},
    StartFault{"WUX_QUE_EpollReg", 1, 31, {"[TARQ_EVENT_Init] EpollReg failed, ret: 31.", "[TARQ_Init] Event init failed, ret: 31."}, {"WUX_QUE_Destory", "WUX_EPOLL_Destroy"}},
    StartFault{"WUX_QUE_MonitorReg", 1, 32, {"[TARQ_EVENT_Init] Flow ctrl reg failed, ret: 32.", "[TARQ_Init] Event init failed, ret: 32."}, {"WUX_QUE_Destory", "WUX_EPOLL_Destroy"}},
    StartFault{"WUX_QUE_CreateNew", 2, 1, {"[NTVTARQ_STATS_QUE_Create] Create que failed !", "[TARQ_STATS_Init]  Create stats queue failed, ret: 1.", "[TARQ_Init] stats init failed, ret: 1."}, {"WUX_EPOLL_Destroy"}},
    StartFault{"WUX_QUE_MonitorReg", 2, 1, {"[NTVTARQ_STATS_QUE_Create] Flow ctrl reg failed, ret: 32.", "[TARQ_STATS_Init]  Create stats queue failed, ret: 32.", "[TARQ_Init] stats init failed, ret: 1."}, {"WUX_QUE_Destory", "WUX_EPOLL_Destroy"}},
    StartFault{"WUX_CHAN_UCServer", 1, 1, {"[NTVTARQ_STATS_IPC_InitServer] UCServer ret: 98.", "[NTVTARQ_STATS_IPC_Init] IPC_InitSocket failed, ret: 1.", "[TARQ_STATS_Init]  Create stats ipc failed, ret: 1.", "[TARQ_Init] stats init failed, ret: 1."}, {"WUX_QUE_Destory", "WUX_EPOLL_Destroy"}}),
    [](const auto& test) { return test.param.call + std::to_string(test.param.nth); });
// clang-format on

TEST_F(ModuleTest, MissingTableOrSlotsAreSurvived) {
  EXPECT_EQ(SAVRO_TARQ_BufAllocZero(8), nullptr);
  SAVRO_TARQ_BufFree(this);
  platform.table.SampleXpathRegister = nullptr;
  EXPECT_EQ(StartModule(), 1u);
  EXPECT_THAT(platform.Calls(kResources), IsEmpty());
  EXPECT_THAT(platform.Texts(kLogFailure), ElementsAre("[TARQ_Init]  register simple xpath failed, ret: 1."));
  platform.table.LogWrite = nullptr;
  SAVRO_TARQ_WriteTlmLog(2, "dropped");
  void* buffer = SAVRO_TARQ_BufAllocZero(64);
  EXPECT_EQ(std::string(static_cast<char*>(buffer), 64), std::string(64, '\0'));
  SAVRO_TARQ_BufFree(buffer);
  platform.bindTable = false;
  EXPECT_EQ(StartModule(), 1u) << "a null table shows at registration";
}

TEST_F(ModuleTest, ARefusedPathIsLoggedAndTheOthersServe) {
  platform.Fail("SampleXpathRegister", 1, 2);
  platform.Fail("ntvtarq_recv_init");  // nor does this keep the module from starting
  EXPECT_EQ(StartModule(), 0u);
  EXPECT_EQ(platform.paths.size(), 2u);
  EXPECT_THAT(
      platform.Texts(kLogFailure),
      ElementsAre(
          "[SampleXpathRegister] failed, ret: 7, xpath: quorin-tarq:tarq/quorin-tarq-statistics:flow-statistics/flow-statistic.",
          "[NTVTARQ_STATS_IPC_Init] recv_init failed, ret: 52."));
}

TEST_F(StartedTest, LogLinesAreWholeOrNotAtAll) {
  platform.log.clear();
  SAVRO_TARQ_WriteTlmLog(1, "%s", std::string(254, 'a').c_str());
  SAVRO_TARQ_WriteTlmLog(1, "%s", std::string(255, 'a').c_str());
  SAVRO_TARQ_WriteTlmLog(1, "%s", "");
  SAVRO_TARQ_WriteTlmLog(1, nullptr);
  EXPECT_EQ(platform.log, std::vector<LogLine>({{1, std::string(254, 'a')}}));
  TARQ_LOG_AT(43, kLogNote, "[%s:%d][X] %u", 9u);
  EXPECT_EQ(platform.log.back().text, "[to.do:43][X] 9");
}

TEST_F(StartedTest, MalformedEventsAreLoggedAndReleased) {
  Queue* queue = platform.QueueNamed("SAVRO_TARQ_EVENT");
  SAVRO_TARQ_EVENT_Pop(queue);
  queue->elements.push_back(0);  // a null record counts as no data
  SAVRO_TARQ_EVENT_Pop(queue);
  for (const EventRecord record :
       {EventRecord{3, 4}, EventRecord{0xFFFFFFFF, 4}, EventRecord{0, 0}, EventRecord{1, 3479}}) {
    auto* event = static_cast<EventRecord*>(SAVRO_TARQ_BufAlloc(8 + 3480));
    *event = record;
    ASSERT_EQ(SAVRO_TARQ_EVENT_Push(event), 0u);
    platform.RunWorker();
  }
  EXPECT_THAT(platform.Texts(kLogFailure),
              ElementsAre("[TARQ_EVENT_Pop] Queue no data.", "[TARQ_EVENT_Pop] Queue no data.",
                          "[TARQ_EVENT_Pop] Msg info error, msgType: 3.",
                          "[TARQ_EVENT_Pop] Msg info error, msgType: 4294967295.",
                          "[TARQ_EVENT_Pop] Msg info error, msgType: 0.",
                          "[NTVTARQ_TASK_AddTlmTaskToList] Msg is NULL, msgLen: 3479",
                          "[TARQ_EVENT_Pop] Msg proc failed, ret: 1, msgType: 1."));
  EXPECT_EQ(platform.buffers.size(), 1u) << "the period ring, which the refused add event started";
}

TEST_F(StartedTest, FlowControlIsOnlyLogged) {
  for (const auto& [proc, tag] : {std::pair{&SAVRO_TARQ_EVENT_FlowCtrlProc, "[TARQ_EVENT_FlowCtrlProc]"},
                                  std::pair{&SAVRO_TARQ_STATS_QUE_FlowCtrlProc, "[TASK_QUE_FlowCtrlProc]"}}) {
    platform.log.clear();
    EXPECT_EQ(proc(1) + proc(0), 0u);
    EXPECT_EQ(proc(7), 1u);
    EXPECT_THAT(platform.Texts(kLogNote),
                ElementsAre(std::string(tag) + " Flow ctrl stop.", std::string(tag) + " Flow ctrl start.",
                            std::string(tag) + " Illigal evt, evt: 7."));
  }
}

TEST_F(StartedTest, TimerPostsAStatsEventEveryThirdSecond) {
  Queue* queue = platform.QueueNamed("SAVRO_TARQ_EVENT");
  EXPECT_EQ(SAVRO_TARQ_STATS_GetTimerSecondCnt(), 0u);
  for (uint32_t second = 1; second <= 6; ++second) {
    SAVRO_TARQ_STATS_TimerCallback(nullptr);
    EXPECT_EQ(queue->elements.size(), second / 3);
  }
  const uint32_t kEvent[3] = {0, 4, 6};
  EXPECT_EQ(memcmp(reinterpret_cast<void*>(queue->elements.back()), kEvent, 12), 0);
  platform.Fail("BufAlloc");
  for (int i = 0; i < 3; ++i) SAVRO_TARQ_STATS_TimerCallback(nullptr);
  platform.Fail("WUX_QUE_AsyWrite");
  for (int i = 0; i < 3; ++i) SAVRO_TARQ_STATS_TimerCallback(nullptr);
  EXPECT_THAT(
      platform.Texts(kLogFailure),
      ElementsAre("[NTVTARQ_STATS_PushStatsEventToQu] Alloc memory failed, timerSecondCnt: 9.",
                  "[TARQ_STATS_TimerCallback] push stats event to queue failed, ret: 1.",
                  "[TARQ_EVENT_Push] Write queue fail. eleCnt: 0.",
                  "[NTVTARQ_STATS_PushStatsEventToQu] push task to event queue failed, timerSecondCnt: 12, ret: 1."));
}

TEST_F(StartedTest, ATimerThatCannotBeNamedIsDestroyed) {
  platform.Fail("WUX_TIMER_SetName");
  EXPECT_EQ(SAVRO_TARQ_STATS_CreateTimer(), 1u);
  platform.Fail("WUX_TIMER_Create");
  EXPECT_EQ(SAVRO_TARQ_STATS_CreateTimer(), 1u);
  EXPECT_THAT(platform.Calls({"WUX_TIMER"}),
              ElementsAre("WUX_TIMER_Create", "WUX_TIMER_SetName", "WUX_TIMER_Destroy", "WUX_TIMER_Create"));
  EXPECT_THAT(platform.Texts(kLogFailure), ElementsAre("[TARQ_STATS_CreateTimer] set timer name fail.",
                                                       "[TARQ_TIMER_Create] create timer failed, timerId: -4."));
}

}  // namespace
}  // namespace tarq::test
