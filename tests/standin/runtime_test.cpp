// Queues and timers on a running loop.
#include "platform/queue.h"
#include "platform/timer.h"
#include "support.h"

namespace tarq::standin {
Shared<uint32_t> g_taken, g_events;
std::atomic<uint32_t> g_ticks;
std::atomic<bool> g_hold;

uint32_t TakeOne(void* queue) {
  while (g_hold) std::this_thread::yield();
  uint32_t element;
  if (WUX_QUE_AsyRead(queue, &element, 1) == 1) g_taken.Add(element);
  return 0;
}
uint32_t NoteEvent(uint32_t event) { return g_events.Add(event), 0; }
uint32_t Tick(void*) { return ++g_ticks, 0; }

TEST(Queue, IsBoundedAndKeepsOrderAndCounts) {
  void* const queue = WUX_QUE_CreateNew("bounded", 6, 5, 4);
  uint32_t out[6];
  for (uint32_t next = 0; next < 42; next += 6) {  // the ring's end falls at every place
    const uint32_t in[] = {next, next + 1, next + 2, next + 3, next + 4, next + 5};
    EXPECT_TRUE(WUX_QUE_AsyWrite(queue, in, 6) == 5 && WUX_QUE_AsyRead(queue, out, 3) == 3);
    EXPECT_TRUE(WUX_QUE_AsyWrite(queue, &in[5], 1) == 1 && WUX_QUE_AsyRead(queue, out + 3, 6) == 3);
    EXPECT_THAT(out, testing::ElementsAreArray(in));
  }
  EXPECT_EQ(WUX_QUE_Destory(queue), 0u);
  for (void* const stale : {queue, static_cast<void*>(nullptr)}) EXPECT_EQ(WUX_QUE_AsyWrite(stale, out, 1), 0);
  const QueueStatus status = Queues().back();
  EXPECT_THAT((std::vector<uint64_t>{status.depth, status.written, status.refused, status.read}),
              ElementsAre(0, 42, 7, 42));
}

TEST(Queue, MonitorTellsEachCrossingOnce) {
  RunningLoop loop;
  void* const queue = WUX_QUE_CreateNew("monitored", 6, 10, 4);
  const QueueMonitor monitor{8, 2, loop.id, {}};
  ASSERT_EQ(WUX_QUE_MonitorReg(queue, &monitor, NoteEvent), 0u);
  uint32_t elements[10] = {}, step = 0;
  const size_t eventsThen[] = {0, 1, 1, 1, 1, 2, 2, 3, 4};  // 8 reached in step 1, 2 in step 5, then armed again
  for (const int32_t change : {+7, +1, -2, +3, -6, -1, -2, +8, -8}) {
    (change > 0) ? WUX_QUE_AsyWrite(queue, elements, uint32_t(change))
                 : WUX_QUE_AsyRead(queue, elements, uint32_t(-change));
    EXPECT_TRUE(Eventually([&] { return g_events.Get().size() >= eventsThen[step]; }) && PassLoops(10s));
    EXPECT_THAT(g_events.Get(), SizeIs(eventsThen[step++])) << "after " << change;
  }
  EXPECT_THAT(g_events.Get(), ElementsAre(1, 0, 1, 0));
}

TEST(Timer, LateLoopDeliversEveryTick) {
  RunningLoop loop;
  void* const queue = WUX_QUE_CreateNew("hold", 6, 4, 4);
  g_hold = true;
  ASSERT_TRUE(WUX_QUE_EpollReg(queue, loop.id, TakeOne) == 0 && WUX_QUE_AsyWrite(queue, "hold", 1) == 1);
  const auto start = std::chrono::steady_clock::now();
  const int32_t timer = WUX_TIMER_Create(5, Tick, nullptr, loop.id);
  const auto due = [&] { return (std::chrono::steady_clock::now() - start) / 5ms; };
  ASSERT_TRUE(Eventually([&] { return due() >= 60; }));
  EXPECT_LE(g_ticks, 1u);
  g_hold = false;
  EXPECT_TRUE(Eventually([&] { return g_ticks + 2 >= due(); })) << "never, had the missed ones not been made up for";
  EXPECT_LE(g_ticks, due() + 1);
  EXPECT_EQ(WUX_TIMER_Destroy(static_cast<uint32_t>(timer)), 0u);
}

TEST(Teardown, QueuesTimersAndLoopsGoWhileTheirCallbacksRun) {
  for (int round = 0; round < 50; ++round) {
    RunningLoop loop;
    void* const queue = WUX_QUE_CreateNew("torn", 6, 16, 4);
    const QueueMonitor monitor{8, 2, loop.id, {}};
    ASSERT_EQ(WUX_QUE_EpollReg(queue, loop.id, TakeOne) | WUX_QUE_MonitorReg(queue, &monitor, NoteEvent), 0u);
    const int32_t timer = WUX_TIMER_Create(1, Tick, nullptr, loop.id);
    g_taken.items.clear();
    std::vector<std::jthread> producers;
    for (uint32_t number = 0; number < 3; ++number) {
      producers.emplace_back([=](const std::stop_token& stop) {
        for (uint32_t i = number << 24; !stop.stop_requested();) i += uint32_t(WUX_QUE_AsyWrite(queue, &i, 1));
      });
    }
    ASSERT_TRUE(Eventually([&] { return g_taken.Get().size() > 100; }));
    if (round % 2 == 0) WUX_EPOLL_Destroy(loop.id);  // either order
    EXPECT_EQ(WUX_QUE_Destory(queue), 0u);
    const std::vector<uint32_t> taken = g_taken.Get();
    EXPECT_EQ(WUX_TIMER_Destroy(static_cast<uint32_t>(timer)), 0u);
    EXPECT_EQ(g_taken.Get().size(), taken.size());
    uint32_t next[3] = {};  // each producer's elements came in order, none missing
    for (const uint32_t element : taken) ASSERT_EQ(element & 0xFFFFFF, next[element >> 24]++);
  }
}
}  // namespace tarq::standin
