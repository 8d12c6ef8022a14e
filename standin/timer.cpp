#include "platform/timer.h"

#include <sys/timerfd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "standin/event_loop.h"
#include "standin/log.h"
#include "standin/registry.h"
#include "standin/standin.h"

namespace tarq {
namespace {

using standin::EventLoop;
using standin::FileDescriptor;
using standin::Objects;

struct Timer {
  uint32_t (*onTick)(void* context);
  void* context;
  FileDescriptor fd{timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)};
  std::atomic<bool> destroyed = false;
  std::mutex nameMutex;
  std::string name;
  standin::Source source;  ///< last, so that it goes before what its callback uses

  Timer(uint32_t (*tick)(void*), void* tickContext) : onTick(tick), context(tickContext) {}

  bool Start(uint32_t periodMs) {
    const timespec period{.tv_sec = periodMs / 1000, .tv_nsec = static_cast<long>(periodMs % 1000) * 1'000'000};
    const itimerspec schedule{.it_interval = period, .it_value = period};
    return fd.valid() && timerfd_settime(fd.get(), 0, &schedule, nullptr) == 0;
  }

  /// Makes up for every tick since the last call.
  void Expire() {
    uint64_t due = 0;
    if (read(fd.get(), &due, sizeof due) != sizeof due) return;
    for (; due > 0 && !destroyed; --due) onTick(context);
  }
};

int32_t Register(const std::shared_ptr<Timer>& timer, const std::shared_ptr<EventLoop>& loop) {
  timer->source = loop->Add(timer->fd.get(), [weak = std::weak_ptr(timer)] {
    if (const auto live = weak.lock()) live->Expire();
  });
  if (!timer->source) return -1;
  const uint64_t id = Objects<Timer>().Add(timer);
  return id <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(id) : -1;
}

}  // namespace

int32_t WUX_TIMER_Create(uint32_t periodMs, uint32_t (*onTick)(void* context), void* context, uint32_t epollId) {
  const auto loop = Objects<EventLoop>().Find(epollId);
  if (loop == nullptr || onTick == nullptr || periodMs == 0) return -1;
  const auto timer = std::make_shared<Timer>(onTick, context);
  if (timer->Start(periodMs)) return Register(timer, loop);
  standin::Log(kLogFailure, "[timer] cannot start a timer of %u ms: %s", periodMs, std::strerror(errno));
  return -1;
}

uint32_t WUX_TIMER_SetName(uint32_t timerId, const char* name) {
  const auto timer = Objects<Timer>().Find(timerId);
  if (timer == nullptr || name == nullptr) return 1;
  std::lock_guard lock(timer->nameMutex);
  timer->name = name;
  return 0;
}

uint32_t WUX_TIMER_Destroy(uint32_t timerId) {
  const auto timer = Objects<Timer>().Take(timerId);
  if (timer == nullptr) return 1;
  timer->destroyed = true;
  timer->source = {};
  return 0;
}

}  // namespace tarq
