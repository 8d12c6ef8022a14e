#include "platform/task.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "standin/log.h"
#include "standin/standin.h"

namespace tarq {
namespace {

constexpr size_t kArgumentSize = 32;
constexpr size_t kThreadNameLength = 15;  ///< what the kernel keeps of a name

struct Task {
  std::string name;
  uint32_t (*entry)(void* arguments);
  std::optional<std::array<uint8_t, kArgumentSize>> arguments;  ///< the task's own copy, if it was given any
  std::thread thread;
  bool ended = false;
};

/// The tasks not yet joined. Never destroyed: a task may still be running when the process ends.
struct Tasks {
  std::mutex mutex;
  std::condition_variable oneEnded;
  std::list<Task> tasks;
  uint32_t lastId = 0;
};

Tasks& AllTasks() {
  static auto* const tasks = new Tasks;
  return *tasks;
}

void RunTask(Task& task) {
  pthread_setname_np(pthread_self(), task.name.c_str());
  task.entry(task.arguments ? task.arguments->data() : nullptr);
  Tasks& all = AllTasks();
  std::lock_guard lock(all.mutex);
  task.ended = true;
  all.oneEnded.notify_all();
}

bool AllEnded(const Tasks& all) {
  return std::all_of(all.tasks.begin(), all.tasks.end(), [](const Task& task) { return task.ended; });
}

}  // namespace

uint32_t JEV_TaskCreate(const char* name, uint32_t* taskId, uint32_t (*entry)(void* arguments), uint32_t /*priority*/,
                        uint64_t /*stackSize*/, uint32_t /*flags*/, void* arguments) {
  if (name == nullptr || taskId == nullptr || entry == nullptr) return EINVAL;
  Tasks& all = AllTasks();
  std::unique_lock lock(all.mutex);
  Task& task = all.tasks.emplace_back();
  task.name = std::string(name).substr(0, kThreadNameLength);
  task.entry = entry;
  if (arguments != nullptr) std::memcpy(task.arguments.emplace().data(), arguments, kArgumentSize);
  try {
    task.thread = std::thread([&task] { RunTask(task); });
  } catch (const std::system_error& error) {
    all.tasks.pop_back();
    lock.unlock();
    standin::Log(kLogFailure, "[task] cannot start %s: %s", name, error.what());
    return EAGAIN;
  }
  *taskId = ++all.lastId;
  return 0;
}

bool standin::JoinTasks(std::chrono::milliseconds timeout) {
  Tasks& all = AllTasks();
  std::unique_lock lock(all.mutex);
  if (!all.oneEnded.wait_for(lock, timeout, [&] { return AllEnded(all); })) return false;
  std::list<Task> ended;
  ended.swap(all.tasks);
  lock.unlock();
  for (Task& task : ended) task.thread.join();
  return true;
}

}  // namespace tarq
