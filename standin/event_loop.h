// The event loop as the stand-in's other parts use it: sources, posted functions.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "standin/file_descriptor.h"

namespace tarq::standin {

class EventLoop;

/// A source's place on a loop. Giving it up takes the source off: its callback is not called again, and when it is
/// running on the loop's thread just now, any other thread waits until it has returned.
class Source {
 public:
  Source() = default;
  Source(std::shared_ptr<EventLoop> loop, uint64_t id, int fd) : loop_(std::move(loop)), id_(id), fd_(fd) {}
  Source(Source&& other) noexcept { swap(other); }
  Source& operator=(Source&& other) noexcept {
    Source(std::move(other)).swap(*this);
    return *this;
  }
  ~Source();

  explicit operator bool() const { return loop_ != nullptr; }
  void swap(Source& other) noexcept;

 private:
  std::shared_ptr<EventLoop> loop_;
  uint64_t id_ = 0;
  int fd_ = -1;
};

/// An epoll instance and what is registered on it. Any thread may call any function but `Run`.
class EventLoop : public std::enable_shared_from_this<EventLoop> {
 public:
  using Callback = std::function<void()>;

  /// Returns a loop, or null when the kernel gives none.
  static std::shared_ptr<EventLoop> Create();

  /// What becomes of a source while the loop is held.
  enum class WhenHeld { kServed, kWaits };

  /// Calls `callback` on the loop's thread for as long as `fd` is readable. The descriptor stays the caller's and must
  /// outlive the source. Returns an empty source on failure. Callbacks should not own what owns the source.
  Source Add(int fd, Callback callback, WhenHeld whenHeld = WhenHeld::kServed);

  /// Holds the loop until as many `Release` have followed: sources that wait are not served meanwhile. A queue on the
  /// loop that is nearly full so keeps new work out of the process instead of losing it.
  void Hold();
  void Release();
  bool held() const;

  /// Runs `function` once on the loop's thread, soon. False when the loop has ended; a loop that ends first drops it.
  bool Post(Callback function);

  /// Serves the loop on this thread until `Stop`. Returns 0; 1 when the loop has ended or runs already.
  uint32_t Run(uint32_t eventsPerWait, int timeoutMs);

  /// Ends the loop; no callback is begun afterwards. Does not wait.
  void Stop();

  bool running() const;

 private:
  friend class Source;
  EventLoop() = default;

  bool Enter();
  void Leave();
  bool stopped() const;
  void Dispatch(uint64_t id);
  void RunPosted();
  void Remove(uint64_t id, int fd);

  struct Entry {
    std::shared_ptr<Callback> callback;
    int fd;
    WhenHeld whenHeld;
  };

  FileDescriptor epoll_;
  Signal wake_;
  mutable std::mutex mutex_;
  std::condition_variable callbackDone_;
  std::map<uint64_t, Entry> sources_;
  std::vector<Callback> posted_;
  std::thread::id runner_;
  uint64_t lastId_ = 0;
  uint64_t runningId_ = 0;  ///< source whose callback is running, 0 for none
  uint32_t holds_ = 0;
  bool stopped_ = false;
};

/// Waits for posted functions. Each holds a ticket; a ticket counts as done once it is destroyed, the function run or
/// dropped.
class Pending : public std::enable_shared_from_this<Pending> {
 public:
  std::shared_ptr<void> Ticket();
  /// False when `timeout` ran out before all tickets were done.
  bool Wait(std::chrono::milliseconds timeout);

 private:
  void Done();

  std::mutex mutex_;
  std::condition_variable allDone_;
  uint32_t open_ = 0;
};

}  // namespace tarq::standin
