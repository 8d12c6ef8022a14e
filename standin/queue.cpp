#include "platform/queue.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "standin/crossings.h"
#include "standin/event_loop.h"
#include "standin/log.h"
#include "standin/registry.h"
#include "standin/standin.h"

namespace tarq::standin {
namespace {

constexpr size_t kMaxQueueBytes = size_t{1} << 30;  ///< a queue's elements together

/// How long a reader that writes to its own queue waits for its next turn.
constexpr std::chrono::milliseconds kPause{5};

/// A queue's figures, which outlive it.
struct Figures {
  explicit Figures(const char* name, uint32_t capacity) : status{.name = name, .capacity = capacity} {}

  std::mutex mutex;  ///< the queue's own, too
  QueueStatus status;
};

/// A ring of elements with an optional reader and an optional monitor on event loops.
class Queue : public std::enable_shared_from_this<Queue> {
 public:
  Queue(std::shared_ptr<Figures> figures, uint32_t elementSize)
      : figures_(std::move(figures)), elementSize_(elementSize), ring_(size_t{status_.capacity} * elementSize) {}

  bool valid() const { return readable_.valid() && crossed_.valid(); }
  bool Read(void* handle, const std::shared_ptr<EventLoop>& loop, uint32_t (*onReadable)(void*));
  bool Monitor(const QueueMonitor& monitor, const std::shared_ptr<EventLoop>& loop, uint32_t (*onEvent)(uint32_t));
  uint32_t Write(const void* elements, uint32_t count);
  uint32_t Take(void* elements, uint32_t max);
  uint32_t depth() const;
  /// Withdraws the registrations; the queue takes and gives nothing afterwards.
  void Close();

 private:
  void Serve(void* handle, uint32_t (*onReadable)(void*));
  void Pause();
  void GoOn();
  void CountUnread(bool taken);
  void CountCrossings();
  void DeliverCrossings(uint32_t (*onEvent)(uint32_t));
  uint8_t* Slot(uint32_t index) { return ring_.data() + size_t{index % status_.capacity} * elementSize_; }

  const std::shared_ptr<Figures> figures_;
  std::mutex& mutex_ = figures_->mutex;
  QueueStatus& status_ = figures_->status;
  const uint32_t elementSize_;
  std::vector<uint8_t> ring_;
  uint32_t head_ = 0;
  bool closed_ = false;
  bool taken_ = false;             ///< the last read took an element
  uint64_t unpackingsAtRead_ = 0;  ///< by the reading thread
  Signal readable_;                ///< raised while the queue holds elements and no pause is on
  FileDescriptor pauseTimer_{timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)};
  bool paused_ = false;
  Signal crossed_;  ///< raised while crossings wait for the monitor
  Source reader_;
  Source pauseEnd_;
  Source monitor_;
  std::shared_ptr<EventLoop> loop_;  ///< the monitor's, held while the queue is above
  QueueMonitor thresholds_{};
  bool above_ = false;             ///< the upper threshold was reached, the lower one not yet
  uint64_t waitingCrossings_ = 0;  ///< not yet delivered; events alternate, so their number says which they are
};

/// The queue whose read callback the calling thread is in, or null.
const Queue*& Served() {
  static thread_local const Queue* queue = nullptr;
  return queue;
}

bool Queue::Read(void* handle, const std::shared_ptr<EventLoop>& loop, uint32_t (*onReadable)(void*)) {
  std::lock_guard lock(mutex_);
  if (closed_ || reader_) return false;
  reader_ = loop->Add(readable_.fd(), [weak = weak_from_this(), handle, onReadable] {
    const auto queue = weak.lock();
    if (queue != nullptr && queue->depth() > 0) queue->Serve(handle, onReadable);
  });
  pauseEnd_ = loop->Add(pauseTimer_.get(), [weak = weak_from_this()] {
    if (const auto queue = weak.lock()) queue->GoOn();
  });
  return reader_ && pauseEnd_;
}

void Queue::Serve(void* handle, uint32_t (*onReadable)(void*)) {
  using std::chrono::steady_clock;
  const auto start = steady_clock::now();
  const uint64_t ownWrites = status_.ownWrites;  // changed by this thread alone
  Served() = this;
  onReadable(handle);
  Served() = nullptr;
  const std::chrono::nanoseconds passed = steady_clock::now() - start;
  std::lock_guard lock(mutex_);
  ++status_.callbacks;
  status_.callbackTime += passed;
  status_.longestCallback = std::max(status_.longestCallback, passed);
  if (status_.ownWrites != ownWrites) Pause();
}

/// A reader that gives itself more work has its next turn after a pause. A collection cycle does so while messages
/// wait: what it has uploaded is delivered meanwhile, instead of three seconds of samples waiting in memory.
void Queue::Pause() {
  const itimerspec time{.it_interval = {}, .it_value = {0, std::chrono::nanoseconds(kPause).count()}};
  if (timerfd_settime(pauseTimer_.get(), 0, &time, nullptr) != 0) return;
  paused_ = true;
  readable_.Clear();
}

void Queue::GoOn() {
  uint64_t expirations;
  if (read(pauseTimer_.get(), &expirations, sizeof expirations) < 0) return;
  std::lock_guard lock(mutex_);
  paused_ = false;
  if (status_.depth > 0) readable_.Raise();
}

bool Queue::Monitor(const QueueMonitor& monitor, const std::shared_ptr<EventLoop>& loop,
                    uint32_t (*onEvent)(uint32_t)) {
  std::lock_guard lock(mutex_);
  if (closed_ || monitor_ || monitor.lowerThreshold >= monitor.upperThreshold) return false;
  thresholds_ = monitor;
  loop_ = loop;
  monitor_ = loop->Add(crossed_.fd(), [weak = weak_from_this(), onEvent] {
    if (const auto queue = weak.lock()) queue->DeliverCrossings(onEvent);
  });
  CountCrossings();
  return static_cast<bool>(monitor_);
}

uint32_t Queue::Write(const void* elements, uint32_t count) {
  std::lock_guard lock(mutex_);
  const uint32_t added = closed_ ? 0 : std::min(count, status_.capacity - status_.depth);
  const auto* from = static_cast<const uint8_t*>(elements);
  for (uint32_t i = 0; i < added; ++i, from += elementSize_)
    std::memcpy(Slot(head_ + status_.depth++), from, elementSize_);
  if (added > 0 && status_.depth == added && !paused_) readable_.Raise();
  status_.written += added;
  status_.refused += count - added;
  if (Served() == this) status_.ownWrites += added;
  ThisThreadsCrossings().elementsWritten += added;
  ThisThreadsCrossings().elementsRefused += count - added;
  CountCrossings();
  return added;
}

uint32_t Queue::Take(void* elements, uint32_t max) {
  std::lock_guard lock(mutex_);
  const uint32_t taken = closed_ ? 0 : std::min(max, status_.depth);
  auto* to = static_cast<uint8_t*>(elements);
  for (uint32_t i = 0; i < taken; ++i, to += elementSize_) std::memcpy(to, Slot(head_ + i), elementSize_);
  head_ = (head_ + taken) % status_.capacity;
  status_.depth -= taken;
  status_.read += taken;
  if (taken == 0) ++status_.emptyReads;
  CountUnread(taken > 0);
  if (taken > 0 && status_.depth == 0) readable_.Clear();
  CountCrossings();
  return taken;
}

void Queue::CountUnread(bool taken) {
  const uint64_t unpackings = ThisThreadsCrossings().unpackings;
  if (taken_ && unpackings == unpackingsAtRead_) ++status_.unread;
  taken_ = taken;
  unpackingsAtRead_ = unpackings;
}

void Queue::CountCrossings() {
  const bool crossed =
      above_ ? status_.depth <= thresholds_.lowerThreshold : status_.depth >= thresholds_.upperThreshold;
  if (!monitor_ || !crossed) return;
  above_ = !above_;
  if (above_) ++status_.stopEvents;
  above_ ? loop_->Hold() : loop_->Release();
  ++waitingCrossings_;
  crossed_.Raise();
}

void Queue::DeliverCrossings(uint32_t (*onEvent)(uint32_t)) {
  std::unique_lock lock(mutex_);
  if (closed_ || waitingCrossings_ == 0) return;
  const bool rising = (waitingCrossings_ % 2 == 1) == above_;
  if (--waitingCrossings_ == 0) crossed_.Clear();
  lock.unlock();
  onEvent(rising ? 1 : 0);
}

uint32_t Queue::depth() const {
  std::lock_guard lock(mutex_);
  return status_.depth;
}

void Queue::Close() {
  Source reader, pauseEnd, monitor;  // given up after the lock: a callback that is waited for may need it
  std::lock_guard lock(mutex_);
  closed_ = true;
  if (std::exchange(above_, false)) loop_->Release();
  reader.swap(reader_);
  pauseEnd.swap(pauseEnd_);
  monitor.swap(monitor_);
}

/// The figures of every queue there has been.
Registry<Figures>& History() { return Objects<Figures>(); }

std::shared_ptr<Queue> FindQueue(const void* handle) { return Objects<Queue>().Find(IdOf(handle)); }

}  // namespace

std::vector<QueueStatus> Queues() {
  std::vector<QueueStatus> all;
  for (const auto& figures : History().All()) {
    std::lock_guard lock(figures->mutex);
    all.push_back(figures->status);
  }
  return all;
}

}  // namespace tarq::standin

namespace tarq {

using standin::EventLoop;
using standin::FindQueue;
using standin::Objects;

void* WUX_QUE_CreateNew(const char* name, uint32_t /*kind*/, uint32_t depth, uint32_t elementSize) {
  if (name == nullptr || depth == 0 || elementSize == 0) return nullptr;
  try {
    if (uint64_t{depth} * elementSize > standin::kMaxQueueBytes) throw std::bad_alloc();
    const auto figures = std::make_shared<standin::Figures>(name, depth);
    const auto queue = std::make_shared<standin::Queue>(figures, elementSize);
    if (!queue->valid()) throw std::bad_alloc();
    standin::History().Add(figures);
    return standin::HandleOf(Objects<standin::Queue>().Add(queue));
  } catch (const std::bad_alloc&) {
    standin::Log(kLogFailure, "[queue] cannot create %s: no memory or descriptors for %u elements of %u bytes", name,
                 depth, elementSize);
    return nullptr;
  }
}

uint32_t WUX_QUE_EpollReg(void* queue, uint32_t epollId, uint32_t (*onReadable)(void* queue)) {
  const auto found = FindQueue(queue);
  const auto loop = Objects<EventLoop>().Find(epollId);
  if (found == nullptr || loop == nullptr || onReadable == nullptr) return 1;
  return found->Read(queue, loop, onReadable) ? 0 : 1;
}

uint32_t WUX_QUE_MonitorReg(void* queue, const QueueMonitor* monitor, uint32_t (*onEvent)(uint32_t event)) {
  const auto found = FindQueue(queue);
  if (found == nullptr || monitor == nullptr || onEvent == nullptr) return 1;
  const auto loop = Objects<EventLoop>().Find(monitor->epollId);
  return loop != nullptr && found->Monitor(*monitor, loop, onEvent) ? 0 : 1;
}

int32_t WUX_QUE_AsyWrite(void* queue, const void* elements, uint32_t count) {
  const auto found = FindQueue(queue);
  return found == nullptr || elements == nullptr ? 0 : static_cast<int32_t>(found->Write(elements, count));
}

int32_t WUX_QUE_AsyRead(void* queue, void* elements, uint32_t max) {
  const auto found = FindQueue(queue);
  return found == nullptr || elements == nullptr ? 0 : static_cast<int32_t>(found->Take(elements, max));
}

uint32_t WUX_QUE_GetElementNum(void* queue) {
  const auto found = FindQueue(queue);
  return found == nullptr ? 0 : found->depth();
}

uint32_t WUX_QUE_Destory(void* queue) {
  const auto found = Objects<standin::Queue>().Take(standin::IdOf(queue));
  if (found == nullptr) return 1;
  found->Close();
  return 0;
}

}  // namespace tarq
