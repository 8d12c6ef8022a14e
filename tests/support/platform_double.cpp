#include "support/platform_double.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "platform/bounded.h"
#include "platform/event_loop.h"
#include "platform/task.h"
#include "platform/timer.h"

namespace tarq::test {
namespace {

Platform& P() { return Platform::Get(); }

uint32_t RegisterPath(uint32_t moduleId, const char* path, const SamplePathRegistration* registration) {
  EXPECT_EQ(moduleId, P().moduleId);
  if (P().Fails("SampleXpathRegister")) return 7;
  P().paths.emplace_back(path, *registration);
  return 0;
}

uint32_t TakeUpload(uint32_t moduleId, const SampleBuffer* s) {
  EXPECT_EQ(moduleId, P().moduleId);
  if (P().Fails("SampleDataUpload")) return 9;
  P().uploads.push_back({s->tlmId, s->taskId, s->isActiveReportEnd, s->recordCount, s->collectTimestamp,
                         std::string(reinterpret_cast<const char*>(s->data), s->dataLen)});
  return 0;
}

uint32_t WriteLog(uint32_t moduleId, uint32_t level, const char* text) {
  EXPECT_EQ(moduleId, P().moduleId);
  P().log.push_back({level, text});
  return 0;
}

void* Alloc(uint32_t moduleId, uint32_t size) {
  EXPECT_EQ(moduleId, P().moduleId);
  if (P().Fails("BufAlloc")) return nullptr;
  void* buffer = malloc(size);
  memset(buffer, 0xA5, size);
  P().buffers[buffer] = size;
  return buffer;
}

uint32_t Free(uint32_t moduleId, void* buffer) {
  EXPECT_EQ(moduleId, P().moduleId);
  P().Fails("BufFree");
  EXPECT_EQ(P().buffers.erase(buffer), 1u) << "released twice, or not a framework buffer";
  free(buffer);
  return 0;
}

template <class Entry>
void Unpack(const void* payload, uint32_t length, StatisticsList* list, int countWord) {
  ++P().unpackedLists;
  if (P().Fails("unpack") || length % sizeof(Entry) != 0) return;
  void* entries = malloc(length);
  memcpy(entries, payload, length);
  list->words[1] = P().nullArray ? (free(entries), 0) : reinterpret_cast<uint64_t>(entries);
  list->words[countWord] = length / sizeof(Entry) | uint64_t{7} << 32;  // the upper half is not the count's
}

void FreeList(StatisticsList* list) {
  --P().unpackedLists;
  P().Fails("free_unpacked");
  free(reinterpret_cast<void*>(list->words[1]));
}

void CheckKey(const KeyDescriptor* descriptor, const ReportPerfKey* key) {
  const KeyDescriptor expected{0x00010008, {}};
  EXPECT_EQ(memcmp(descriptor, &expected, sizeof(expected)), 0);
  EXPECT_EQ(key->reserved, 0u);
}

struct DatabaseObject {
  uint32_t operation;
  ReportPerfRecord record{};
};

}  // namespace

Platform& Platform::Get() {
  static Platform platform;
  return platform;
}

Platform::Platform() : table{{}, RegisterPath, TakeUpload, nullptr, WriteLog, Alloc, Free} {}

bool Platform::Fails(const std::string& call) {
  calls.push_back(call);
  if (failAt != 0 && calls.size() == static_cast<size_t>(failAt)) {
    failed = call;
    return true;
  }
  const auto fault = faults.find(call);
  if (fault == faults.end() || --fault->second.first > 0 || fault->second.second == 0) return false;
  --fault->second.second;
  return true;
}

std::vector<std::string> Platform::Calls(const std::vector<std::string>& prefixes) const {
  std::vector<std::string> found;
  for (const std::string& call : calls) {
    if (std::ranges::any_of(prefixes, [&](const std::string& p) { return call.starts_with(p); })) found.push_back(call);
  }
  return found;
}

std::vector<std::string> Platform::Texts(uint32_t level) const {
  std::vector<std::string> texts;
  for (const LogLine& line : log) {
    if (line.level == level) texts.push_back(line.text.substr(line.text.find(']') + 1));
  }
  return texts;
}

Queue* Platform::QueueNamed(const std::string& name) {
  for (const auto& queue : queues) {
    if (queue->name == name) return queue.get();
  }
  return nullptr;
}

void Platform::RunWorker() {
  for (const auto& queue : queues) {
    while (queue->onReadable != nullptr && !queue->elements.empty()) queue->onReadable(queue.get());
  }
}

void Platform::Tick(int ticks) {
  for (; ticks > 0; --ticks) {
    onTick(nullptr);
    RunWorker();
  }
}

uint32_t Platform::Deliver(const std::vector<MessageDescriptor>& batch) {
  return channel.onReceive(nullptr, batch.data(), static_cast<uint32_t>(batch.size()));
}

}  // namespace tarq::test

using tarq::test::CheckKey;
using tarq::test::DatabaseObject;
using tarq::test::P;
using tarq::test::Queue;

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  if (P().Fails("gettimeofday")) return -1;
  *now = P().now;
  return 0;
}

namespace tarq {
extern "C" {

uint32_t COMP_GetVTable(uint32_t component, uint32_t interface, FrameworkTable** table) {
  EXPECT_EQ(component, 1000u);
  EXPECT_EQ(interface, 1000u);
  if (P().Fails("COMP_GetVTable")) return 5;
  *table = P().bindTable ? &P().table : nullptr;
  return 0;
}

int32_t WUX_EPOLL_Create(uint32_t) { return P().Fails("WUX_EPOLL_Create") ? -3 : 11; }
uint32_t WUX_EPOLL_Run(uint32_t id, uint32_t events, int32_t timeout) {
  EXPECT_EQ(events, 5u);
  EXPECT_EQ(timeout, -1);
  return id + 100;
}
uint32_t WUX_EPOLL_Destroy(uint32_t id) {
  EXPECT_EQ(id, 11u);
  P().Fails("WUX_EPOLL_Destroy");
  return 0;
}

uint32_t JEV_TaskCreate(const char* name, uint32_t* taskId, uint32_t (*entry)(void*), uint32_t priority, uint64_t stack,
                        uint32_t flags, void* arguments) {
  EXPECT_STREQ(name, "SAVRO_TARQ_STATS");
  EXPECT_EQ(*taskId + stack + flags, 0u);
  EXPECT_EQ(priority, 1u);
  EXPECT_EQ(std::string(static_cast<char*>(arguments), 32), std::string(32, '\0'));
  if (P().Fails("JEV_TaskCreate")) return 6;
  P().taskEntry = entry;
  *taskId = 21;
  return 0;
}

void* WUX_QUE_CreateNew(const char* name, uint32_t kind, uint32_t depth, uint32_t elementSize) {
  if (P().Fails("WUX_QUE_CreateNew")) return nullptr;
  return P().queues.emplace_back(new Queue{name, kind, depth, elementSize, {}}).get();
}
uint32_t WUX_QUE_EpollReg(void* queue, uint32_t epollId, uint32_t (*onReadable)(void*)) {
  if (P().Fails("WUX_QUE_EpollReg")) return 31;
  EXPECT_EQ(epollId, 11u);
  static_cast<Queue*>(queue)->onReadable = onReadable;
  return 0;
}
uint32_t WUX_QUE_MonitorReg(void* queue, const QueueMonitor* monitor, uint32_t (*onEvent)(uint32_t)) {
  if (P().Fails("WUX_QUE_MonitorReg")) return 32;
  static_cast<Queue*>(queue)->monitor = *monitor;
  static_cast<Queue*>(queue)->onEvent = onEvent;
  return 0;
}
int32_t WUX_QUE_AsyWrite(void* handle, const void* elements, uint32_t count) {
  auto* queue = static_cast<Queue*>(handle);
  if (P().Fails("WUX_QUE_AsyWrite") || queue == nullptr || queue->elements.size() >= queue->depth) return 0;
  EXPECT_EQ(count, 1u);
  queue->elements.push_back(*static_cast<const uint64_t*>(elements));
  return 1;
}
int32_t WUX_QUE_AsyRead(void* handle, void* elements, uint32_t) {
  auto* queue = static_cast<Queue*>(handle);
  if (P().Fails("WUX_QUE_AsyRead") || queue == nullptr || queue->elements.empty()) return 0;
  *static_cast<uint64_t*>(elements) = queue->elements.front();
  queue->elements.pop_front();
  return 1;
}
uint32_t WUX_QUE_GetElementNum(void* queue) {
  return static_cast<uint32_t>(static_cast<Queue*>(queue)->elements.size());
}
uint32_t WUX_QUE_Destory(void* handle) {
  P().Fails("WUX_QUE_Destory");
  const size_t erased = std::erase_if(P().queues, [handle](const auto& queue) { return queue.get() == handle; });
  EXPECT_EQ(erased, 1u) << "queue destroyed twice";
  return 0;
}

int32_t WUX_TIMER_Create(uint32_t periodMs, uint32_t (*onTick)(void*), void* context, uint32_t epollId) {
  EXPECT_EQ(periodMs, 1000u);
  EXPECT_EQ(context, nullptr);
  EXPECT_EQ(epollId, 11u);
  if (P().Fails("WUX_TIMER_Create")) return -4;
  P().onTick = onTick;
  return 41;
}
uint32_t WUX_TIMER_SetName(uint32_t timerId, const char* name) {
  EXPECT_EQ(timerId, 41u);
  EXPECT_STREQ(name, "WUX_TARQ_StatsTimer");
  return P().Fails("WUX_TIMER_SetName") ? 8 : 0;
}
uint32_t WUX_TIMER_Destroy(uint32_t timerId) {
  EXPECT_EQ(timerId, 41u);
  P().Fails("WUX_TIMER_Destroy");
  P().onTick = nullptr;
  return 0;
}

uint32_t WUX_CHAN_UCServer(const char* name, uint32_t flags, const ChannelConfig* config, uint64_t* handle) {
  EXPECT_STREQ(name, "SAVRO_TARQ");
  EXPECT_EQ(flags, 0u);
  if (P().Fails("WUX_CHAN_UCServer")) return 98;
  P().channel = *config;
  *handle = 51;
  return 0;
}
uint32_t WUX_CHAN_UCServerDestory(uint64_t handle) {
  EXPECT_EQ(handle, 51u);
  P().Fails("WUX_CHAN_UCServerDestory");
  return 0;
}

uint32_t ntvtarq_recv_init() { return P().Fails("ntvtarq_recv_init") ? 52 : 0; }

#define UNPACKERS(prefix, Entry, countWord)                                               \
  uint32_t prefix##__unpack(const void* payload, uint32_t length, StatisticsList* list) { \
    test::Unpack<Entry>(payload, length, list, countWord);                                \
    return 0;                                                                             \
  }                                                                                       \
  void prefix##_free__unpacked(StatisticsList* list) { test::FreeList(list); }
UNPACKERS(tarq_flow_statistics_list_to_savro, FlowEntry, 0)
UNPACKERS(tarq_flow_hop_statistics_list_to_savro, FlowHopEntry, 0)
UNPACKERS(ntvtarq_entry_list_savro, NativeIpEntry, 2)

uint32_t db_create_tarq_savro_report_perf_obj(uint32_t operation, uint32_t flags, void** object) {
  EXPECT_EQ(flags, 0u);
  if (P().Fails("db_create" + std::to_string(operation))) return 61;
  *object = new DatabaseObject{operation};
  ++P().databaseObjects;
  return 0;
}
uint32_t db_release_tarq_savro_report_perf_object(void* object) {
  P().Fails("db_release");
  delete static_cast<DatabaseObject*>(object);
  --P().databaseObjects;
  return 0;
}
uint32_t db_read_obj(void*, const KeyDescriptor* descriptor, const ReportPerfKey* key) {
  CheckKey(descriptor, key);
  return P().Fails("db_read") || !P().rows.contains(key->history_id) ? 62 : 0;
}
uint32_t db_update_obj(void* object, const KeyDescriptor* descriptor, const ReportPerfKey* key) {
  CheckKey(descriptor, key);
  if (P().Fails("db_update") || !P().rows.contains(key->history_id)) return 63;
  ReportPerfRecord record = static_cast<DatabaseObject*>(object)->record;
  record.history_id = key->history_id;
  P().rows[key->history_id] = record;
  return 0;
}
uint32_t db_write_obj(void* object) {
  const ReportPerfRecord& record = static_cast<DatabaseObject*>(object)->record;
  return P().Fails("db_write") || !P().rows.emplace(record.history_id, record).second ? 64 : 0;
}
uint32_t db_set_tarq_savro_report_perf_all_fields(void* object, const ReportPerfRecord* record, uint32_t length) {
  EXPECT_EQ(length, 60u);
  if (P().Fails("db_set_all")) return 65;
  static_cast<DatabaseObject*>(object)->record = *record;
  return 0;
}
#define SETTER(field)                                                            \
  uint32_t db_set_tarq_savro_report_perf_##field(void* object, uint32_t value) { \
    if (P().Fails("db_set:" #field)) return 2;                                   \
    static_cast<DatabaseObject*>(object)->record.field = value;                  \
    return 0;                                                                    \
  }
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
uint32_t db_truncate_table(const char* name, uint32_t flags) {
  EXPECT_STREQ(name, "tarq_savro_report_perf");
  EXPECT_EQ(flags, 1u);
  if (P().Fails("db_truncate")) return 66;
  P().rows.clear();
  return 0;
}

int memcpy_s(void* destination, size_t capacity, const void* source, size_t count) {
  // A capacity of 0 is an error here, as some platforms have it.
  if (P().Fails("memcpy_s") || capacity == 0 || source == nullptr || count > capacity) return 34;
  memcpy(destination, source, count);
  return 0;
}
int memset_s(void* destination, size_t capacity, int value, size_t count) {
  if (P().Fails("memset_s") || count > capacity) return 34;
  memset(destination, value, count);
  return 0;
}
int vsprintf_s(char* destination, size_t capacity, const char* format, va_list arguments) {
  if (P().Fails("vsprintf_s")) return -1;
  const int length = vsnprintf(destination, capacity, format, arguments);
  return length < 0 || static_cast<size_t>(length) >= capacity ? -1 : length;
}
int sprintf_s(char* destination, size_t capacity, const char* format, ...) {
  if (P().Fails("sprintf_s")) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(destination, capacity, format, arguments);
  va_end(arguments);
  return length < 0 || static_cast<size_t>(length) >= capacity ? -1 : length;
}

}  // extern "C"
}  // namespace tarq
