#include "platform/framework.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>

#include "standin/crossings.h"
#include "standin/log.h"
#include "standin/sample_delivery.h"
#include "standin/standin.h"

namespace tarq::standin {
namespace {

constexpr uint32_t kFrameworkSelector = 1000;  ///< names the telemetry framework to the registry, twice

struct SamplePath {
  std::string path;
  AddTaskCallback addTask;
  DelTaskCallback delTask;
};

/// Precedes every buffer, which keeps the alignment of the allocation.
struct alignas(16) BufferHeader {
  uint64_t size;
  uint64_t mark;
};
static_assert(sizeof(BufferHeader) == 16);
constexpr uint64_t kBufferMark = 0x5441525142554646;  ///< tells a buffer of ours from a foreign pointer

/// The framework's state. Never destroyed: a task may still be running when the process ends.
struct Framework {
  std::mutex pathMutex;
  std::vector<SamplePath> paths;

  std::mutex logMutex;
  std::shared_ptr<const LogHandler> logHandler;
  std::atomic<uint64_t> failureLines = 0;

  std::mutex bufferMutex;
  std::map<uint32_t, uint64_t> buffersInUse;
  std::atomic<uint64_t> bufferBytes = 0;

  SampleDelivery delivery;
};

Framework& TheFramework() {
  static auto* const framework = new Framework;
  return *framework;
}

void WriteLine(uint32_t level, const char* text) {
  Framework& framework = TheFramework();
  if (level == kLogFailure) {
    ++framework.failureLines;
    ++ThisThreadsCrossings().failureLines;
  }
  std::unique_lock lock(framework.logMutex);
  const auto handler = framework.logHandler;
  lock.unlock();
  if (handler != nullptr && *handler) (*handler)(level, text);
}

/// The registration of `path`; the caller holds `pathMutex`.
SamplePath* FindPath(std::string_view path) {
  auto& paths = TheFramework().paths;
  const auto found = std::find_if(paths.begin(), paths.end(), [&](const SamplePath& one) { return one.path == path; });
  return found == paths.end() ? nullptr : &*found;
}

std::optional<SamplePath> CopyOfPath(std::string_view path) {
  std::lock_guard lock(TheFramework().pathMutex);
  const SamplePath* found = FindPath(path);
  return found == nullptr ? std::nullopt : std::optional(*found);
}

// ---- Slots of the framework's table ----

uint32_t RegisterPath(uint32_t, const char* path, const SamplePathRegistration* registration) {
  if (path == nullptr || registration == nullptr) return 1;
  if (registration->addTask == nullptr || registration->delTask == nullptr) return 1;
  std::lock_guard lock(TheFramework().pathMutex);
  SamplePath* found = FindPath(path);
  if (found == nullptr) found = &TheFramework().paths.emplace_back(SamplePath{path, nullptr, nullptr});
  found->addTask = registration->addTask;
  found->delTask = registration->delTask;
  return 0;
}

Sample CopyOf(const SampleBuffer& sample) {
  return {.tlmId = sample.tlmId,
          .taskId = sample.taskId,
          .collectTimestamp = sample.collectTimestamp,
          .isActiveReportEnd = sample.isActiveReportEnd != 0,
          .recordCount = sample.recordCount,
          .data = std::string(reinterpret_cast<const char*>(sample.data), sample.dataLen)};
}

uint32_t RefuseUpload(const SampleBuffer& sample, const char* reason) {
  TheFramework().delivery.CountRefused(sample.taskId, sample.recordCount);
  Log(kLogFailure, "[framework] a sample of %u bytes for task %u is refused: %s", sample.dataLen, sample.taskId,
      reason);
  return 1;
}

uint32_t Upload(uint32_t, const SampleBuffer* sample) {
  if (sample == nullptr) return 1;
  TheFramework().delivery.CountUpload(sample->recordCount);
  if (sample->dataLen > kSampleDataCapacity) return RefuseUpload(*sample, "it exceeds a sample's capacity");
  try {
    return TheFramework().delivery.Accept(CopyOf(*sample)) ? 0 : 1;
  } catch (const std::exception& error) {  // no memory or no thread
    return RefuseUpload(*sample, error.what());
  }
}

uint32_t WriteLog(uint32_t, uint32_t level, const char* text) {
  if (text == nullptr) return 1;
  WriteLine(level, text);
  return 0;
}

void CountBuffer(uint32_t size, int64_t change) {
  Framework& framework = TheFramework();
  std::lock_guard lock(framework.bufferMutex);
  if ((framework.buffersInUse[size] += change) == 0) framework.buffersInUse.erase(size);
  framework.bufferBytes += static_cast<uint64_t>(change * int64_t{size});
}

void* AllocateBuffer(uint32_t, uint32_t size) {
  auto* const header = static_cast<BufferHeader*>(std::malloc(sizeof(BufferHeader) + size));
  if (header == nullptr) return nullptr;
  *header = {.size = size, .mark = kBufferMark};
  CountBuffer(size, 1);
  return header + 1;
}

uint32_t ReleaseBuffer(uint32_t, void* buffer) {
  if (buffer == nullptr) return 1;
  auto* const header = static_cast<BufferHeader*>(buffer) - 1;
  if (header->mark != kBufferMark) {
    Log(kLogFailure, "[framework] a buffer was released that the framework did not hand out");
    return 1;
  }
  CountBuffer(static_cast<uint32_t>(header->size), -1);
  header->mark = 0;
  std::free(header);
  return 0;
}

FrameworkTable g_table{.slots0to2 = {},
                       .SampleXpathRegister = RegisterPath,
                       .SampleDataUpload = Upload,
                       .slot5 = nullptr,
                       .LogWrite = WriteLog,
                       .BufAlloc = AllocateBuffer,
                       .BufFree = ReleaseBuffer};

}  // namespace

void Log(uint32_t level, const char* format, ...) {
  char line[kMaxLogLine];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  WriteLine(level, line);
}

void SetSampleHandler(SampleHandler handler) { TheFramework().delivery.SetHandler(std::move(handler)); }

void SetLogHandler(LogHandler handler) {
  auto shared = std::make_shared<const LogHandler>(std::move(handler));
  std::lock_guard lock(TheFramework().logMutex);
  TheFramework().logHandler.swap(shared);
}

std::vector<std::string> SamplePaths() {
  std::lock_guard lock(TheFramework().pathMutex);
  std::vector<std::string> paths;
  for (const SamplePath& one : TheFramework().paths) paths.push_back(one.path);
  return paths;
}

uint32_t AddTask(std::string_view path, uint32_t tlmId, uint32_t taskId, const TaskDescription& description) {
  const auto found = CopyOfPath(path);
  return found ? found->addTask(tlmId, taskId, &description) : 1;
}

uint32_t DeleteTask(std::string_view path, uint32_t tlmId, uint32_t taskId) {
  const auto found = CopyOfPath(path);
  return found ? found->delTask(tlmId, taskId) : 1;
}

bool WaitDelivered(std::chrono::milliseconds timeout) { return TheFramework().delivery.WaitIdle(timeout); }

void StopDelivery() { TheFramework().delivery.Stop(); }

uint64_t BufferBytesInUse() { return TheFramework().bufferBytes; }

FrameworkCounters GetFrameworkCounters() {
  Framework& framework = TheFramework();
  FrameworkCounters counters;
  framework.delivery.Count(counters);
  counters.failureLines = framework.failureLines;
  std::lock_guard lock(framework.bufferMutex);
  counters.buffersInUse = framework.buffersInUse;
  return counters;
}

}  // namespace tarq::standin

uint32_t tarq::COMP_GetVTable(uint32_t component, uint32_t interface, FrameworkTable** table) {
  using standin::kFrameworkSelector;
  if (component != kFrameworkSelector || interface != kFrameworkSelector || table == nullptr) return 1;
  *table = &standin::g_table;
  return 0;
}
