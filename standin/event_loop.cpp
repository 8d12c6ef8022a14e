#include "standin/event_loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "platform/event_loop.h"
#include "standin/log.h"
#include "standin/registry.h"
#include "standin/standin.h"

namespace tarq::standin {
namespace {

constexpr uint32_t kMaxEventsPerWait = 64;
constexpr uint64_t kWakeId = 0;  ///< event data of the loop's own signal; sources count from 1

bool Watch(int epoll, int fd, uint64_t id) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = id;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

Source::~Source() {
  if (loop_ != nullptr) loop_->Remove(id_, fd_);
}

void Source::swap(Source& other) noexcept {
  std::swap(loop_, other.loop_);
  std::swap(id_, other.id_);
  std::swap(fd_, other.fd_);
}

std::shared_ptr<EventLoop> EventLoop::Create() {
  std::shared_ptr<EventLoop> loop(new EventLoop);
  loop->epoll_ = FileDescriptor(epoll_create1(EPOLL_CLOEXEC));
  const bool ready =
      loop->epoll_.valid() && loop->wake_.valid() && Watch(loop->epoll_.get(), loop->wake_.fd(), kWakeId);
  return ready ? loop : nullptr;
}

Source EventLoop::Add(int fd, Callback callback, WhenHeld whenHeld) {
  auto shared = std::make_shared<Callback>(std::move(callback));
  std::lock_guard lock(mutex_);
  const bool waits = holds_ > 0 && whenHeld == WhenHeld::kWaits;
  if (!waits && !Watch(epoll_.get(), fd, lastId_ + 1)) return {};
  sources_.emplace(++lastId_, Entry{std::move(shared), fd, whenHeld});
  return Source(shared_from_this(), lastId_, fd);
}

void EventLoop::Hold() {
  std::lock_guard lock(mutex_);
  if (++holds_ > 1) return;
  for (const auto& [id, entry] : sources_) {
    if (entry.whenHeld == WhenHeld::kWaits) epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, entry.fd, nullptr);
  }
}

void EventLoop::Release() {
  std::lock_guard lock(mutex_);
  if (--holds_ > 0) return;
  for (const auto& [id, entry] : sources_) {
    if (entry.whenHeld == WhenHeld::kWaits) Watch(epoll_.get(), entry.fd, id);
  }
}

bool EventLoop::held() const {
  std::lock_guard lock(mutex_);
  return holds_ > 0;
}

void EventLoop::Remove(uint64_t id, int fd) {
  std::shared_ptr<Callback> callback;  // released after the lock
  std::unique_lock lock(mutex_);
  epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
  if (const auto found = sources_.find(id); found != sources_.end()) {
    callback = std::move(found->second.callback);
    sources_.erase(found);
  }
  if (runner_ == std::this_thread::get_id()) return;
  callbackDone_.wait(lock, [&] { return runningId_ != id; });
}

bool EventLoop::Post(Callback function) {
  std::lock_guard lock(mutex_);
  if (stopped_) return false;
  posted_.push_back(std::move(function));
  wake_.Raise();
  return true;
}

uint32_t EventLoop::Run(uint32_t eventsPerWait, int timeoutMs) {
  if (!Enter()) return 1;
  std::vector<epoll_event> events(std::clamp(eventsPerWait, 1u, kMaxEventsPerWait));
  while (!stopped()) {
    const int count = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeoutMs);
    for (int i = 0; i < count; ++i) Dispatch(events[i].data.u64);
  }
  Leave();
  return 0;
}

bool EventLoop::Enter() {
  std::lock_guard lock(mutex_);
  if (stopped_ || runner_ != std::thread::id()) return false;
  runner_ = std::this_thread::get_id();
  return true;
}

void EventLoop::Leave() {
  std::vector<Callback> dropped;
  std::lock_guard lock(mutex_);
  runner_ = std::thread::id();
  dropped.swap(posted_);
}

void EventLoop::Dispatch(uint64_t id) {
  if (id == kWakeId) return RunPosted();
  std::shared_ptr<Callback> callback;
  {
    std::lock_guard lock(mutex_);
    const auto found = sources_.find(id);  // an earlier callback of the same wait may have removed it
    if (stopped_ || found == sources_.end()) return;
    if (holds_ > 0 && found->second.whenHeld == WhenHeld::kWaits) return;
    callback = found->second.callback;
    runningId_ = id;
  }
  (*callback)();
  std::lock_guard lock(mutex_);
  runningId_ = 0;
  callbackDone_.notify_all();
}

void EventLoop::RunPosted() {
  std::vector<Callback> functions;
  {
    std::lock_guard lock(mutex_);
    wake_.Clear();
    functions.swap(posted_);
  }
  for (Callback& function : functions) {
    if (!stopped()) function();
    function = nullptr;
  }
}

void EventLoop::Stop() {
  std::vector<Callback> dropped;
  std::lock_guard lock(mutex_);
  stopped_ = true;
  dropped.swap(posted_);
  wake_.Raise();
}

bool EventLoop::stopped() const {
  std::lock_guard lock(mutex_);
  return stopped_;
}

bool EventLoop::running() const {
  std::lock_guard lock(mutex_);
  return runner_ != std::thread::id() && runner_ != std::this_thread::get_id();
}

std::shared_ptr<void> Pending::Ticket() {
  std::lock_guard lock(mutex_);
  ++open_;
  return std::shared_ptr<void>(this, [self = shared_from_this()](void*) { self->Done(); });
}

void Pending::Done() {
  std::lock_guard lock(mutex_);
  if (--open_ == 0) allDone_.notify_all();
}

bool Pending::Wait(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return allDone_.wait_for(lock, timeout, [this] { return open_ == 0; });
}

bool PassLoops(std::chrono::milliseconds timeout) {
  const auto pending = std::make_shared<Pending>();
  for (const auto& loop : Objects<EventLoop>().All()) {
    if (loop->running()) loop->Post([ticket = pending->Ticket()] {});
  }
  return pending->Wait(timeout);
}

}  // namespace tarq::standin

namespace tarq {

using standin::EventLoop;
using standin::Objects;

int32_t WUX_EPOLL_Create(uint32_t) {
  auto loop = EventLoop::Create();
  if (loop == nullptr) {
    standin::Log(kLogFailure, "[loop] cannot create an event loop: %s", std::strerror(errno));
    return -1;
  }
  const uint64_t id = Objects<EventLoop>().Add(std::move(loop));
  return id <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(id) : -1;
}

uint32_t WUX_EPOLL_Run(uint32_t id, uint32_t eventsPerWait, int32_t timeoutMs) {
  const auto loop = Objects<EventLoop>().Find(id);
  return loop == nullptr ? 1 : loop->Run(eventsPerWait, timeoutMs);
}

uint32_t WUX_EPOLL_Destroy(uint32_t id) {
  const auto loop = Objects<EventLoop>().Take(id);
  if (loop == nullptr) return 1;
  loop->Stop();
  return 0;
}

}  // namespace tarq
