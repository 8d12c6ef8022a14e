#include "bench/platform.h"

#include <bit>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/database.h"
#include "platform/event_loop.h"
#include "platform/queue.h"
#include "platform/task.h"
#include "platform/timer.h"
#include "standin/log.h"

namespace tarq::bench {
namespace {

/// A ring of pointers.
struct Queue {
  explicit Queue(uint32_t depth) : depth(depth), elements(std::bit_ceil(depth)) {}

  const uint32_t depth;
  std::vector<void*> elements;  ///< a power of two of them
  uint32_t first = 0, count = 0;
  uint32_t (*onReadable)(void* queue) = nullptr;

  void*& At(uint32_t index) { return elements[index & (elements.size() - 1)]; }
};
std::vector<Queue*> g_queues;

uint32_t RegisterPath(uint32_t, const char*, const SamplePathRegistration*) { return 0; }

uint32_t TakeUpload(uint32_t, const SampleBuffer* sample) {
  ++ThePlatform().uploads;
  ThePlatform().uploadedRecords += sample->recordCount;
  return 0;
}

uint32_t WriteLog(uint32_t, uint32_t, const char*) { return 0; }

/// Buffers by the power of two that holds them: what is given back is given out next.
struct Buffer {
  uint64_t bin;
  Buffer* next;  ///< behind it the bytes
};
Buffer* g_free[33];

void* Alloc(uint32_t, uint32_t size) {
  const auto bin = static_cast<uint64_t>(std::bit_width(size));
  Buffer* buffer = g_free[bin];
  if (buffer != nullptr) {
    g_free[bin] = buffer->next;
  } else {
    buffer = static_cast<Buffer*>(std::malloc(sizeof(Buffer) + (size_t{1} << bin)));
    buffer->bin = bin;
  }
  return buffer + 1;
}

uint32_t Free(uint32_t, void* bytes) {
  Buffer* const buffer = static_cast<Buffer*>(bytes) - 1;
  buffer->next = std::exchange(g_free[buffer->bin], buffer);
  return 0;
}

FrameworkTable g_table{{}, RegisterPath, TakeUpload, nullptr, WriteLog, Alloc, Free};

}  // namespace

Platform& ThePlatform() {
  static Platform platform;
  return platform;
}

void Platform::RunWorker() {
  for (Queue* queue : g_queues) {
    while (queue->onReadable != nullptr && queue->count > 0) queue->onReadable(queue);
  }
}

void Platform::Collect() {
  for (int second = 0; second < 3; ++second) onTick(nullptr);
  RunWorker();
}

}  // namespace tarq::bench

/// What the unpacking would say of a bad message.
void tarq::standin::Log(uint32_t, const char*, ...) { std::abort(); }

namespace tarq {

using bench::Queue;
using bench::ThePlatform;

extern "C" {

uint32_t COMP_GetVTable(uint32_t, uint32_t, FrameworkTable** table) { return *table = &bench::g_table, 0; }

int32_t WUX_EPOLL_Create(uint32_t) { return 1; }
uint32_t WUX_EPOLL_Run(uint32_t, uint32_t, int32_t) { return 0; }
uint32_t WUX_EPOLL_Destroy(uint32_t) { return 0; }
uint32_t JEV_TaskCreate(const char*, uint32_t*, uint32_t (*)(void*), uint32_t, uint64_t, uint32_t, void*) { return 0; }

void* WUX_QUE_CreateNew(const char*, uint32_t, uint32_t depth, uint32_t) {
  return bench::g_queues.emplace_back(new Queue(depth));
}
uint32_t WUX_QUE_EpollReg(void* queue, uint32_t, uint32_t (*onReadable)(void*)) {
  static_cast<Queue*>(queue)->onReadable = onReadable;
  return 0;
}
uint32_t WUX_QUE_MonitorReg(void*, const QueueMonitor*, uint32_t (*)(uint32_t)) { return 0; }
int32_t WUX_QUE_AsyWrite(void* handle, const void* element, uint32_t) {
  Queue& queue = *static_cast<Queue*>(handle);
  if (queue.count == queue.depth) return 0;
  std::memcpy(&queue.At(queue.first + queue.count++), element, sizeof(void*));
  return 1;
}
int32_t WUX_QUE_AsyRead(void* handle, void* element, uint32_t) {
  Queue& queue = *static_cast<Queue*>(handle);
  if (queue.count == 0) return 0;
  std::memcpy(element, &queue.At(queue.first++), sizeof(void*));
  --queue.count;
  return 1;
}
uint32_t WUX_QUE_GetElementNum(void* queue) { return static_cast<Queue*>(queue)->count; }
uint32_t WUX_QUE_Destory(void*) { return 0; }

int32_t WUX_TIMER_Create(uint32_t, uint32_t (*onTick)(void*), void*, uint32_t) {
  return ThePlatform().onTick = onTick, 1;
}
uint32_t WUX_TIMER_SetName(uint32_t, const char*) { return 0; }
uint32_t WUX_TIMER_Destroy(uint32_t) { return 0; }

uint32_t WUX_CHAN_UCServer(const char*, uint32_t, const ChannelConfig* config, uint64_t* handle) {
  ThePlatform().onReceive = config->onReceive;
  return *handle = 1, 0;
}
uint32_t WUX_CHAN_UCServerDestory(uint64_t) { return 0; }

uint32_t db_create_tarq_savro_report_perf_obj(uint32_t, uint32_t, void** object) {
  return *object = &bench::g_table, 0;
}
uint32_t db_release_tarq_savro_report_perf_object(void*) { return 0; }
uint32_t db_read_obj(void*, const KeyDescriptor*, const ReportPerfKey*) { return 0; }
uint32_t db_update_obj(void*, const KeyDescriptor*, const ReportPerfKey*) { return 0; }
uint32_t db_write_obj(void*) { return 0; }
uint32_t db_set_tarq_savro_report_perf_all_fields(void*, const ReportPerfRecord*, uint32_t) { return 0; }
#define SETTER(field) \
  uint32_t db_set_tarq_savro_report_perf_##field(void*, uint32_t) { return 0; }
SETTER(period_index)
SETTER(in_wux_msg_count)
SETTER(in_wux_msg_byte_count)
SETTER(in_wux_item_count)
SETTER(in_wux_item_byte_count)
SETTER(out_msg_count)
SETTER(out_msg_byte_count)
SETTER(out_item_count)
SETTER(out_item_byte_count)
SETTER(start_time_s)
SETTER(start_time_ms)
SETTER(end_time_s)
SETTER(end_time_ms)
uint32_t db_truncate_table(const char*, uint32_t) { return 0; }

}  // extern "C"
}  // namespace tarq
