// What the stand-in's tests share.
#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/event_loop.h"
#include "standin/standin.h"

namespace tarq::standin {
using namespace std::chrono_literals;
using testing::ElementsAre, testing::HasSubstr, testing::SizeIs;

/// True as soon as `condition` holds; false when it does not within the bound.
inline bool Eventually(const std::function<bool()>& condition, std::chrono::seconds bound = 20s) {
  const auto deadline = std::chrono::steady_clock::now() + bound;
  while (!condition() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
  return condition();
}

/// A list that threads share.
template <class T>
struct Shared {
  std::mutex mutex;
  std::vector<T> items;
  void Add(T item) { Get(&item); }
  std::vector<T> Get(T* added = nullptr) {
    std::lock_guard lock(mutex);
    if (added != nullptr) items.push_back(std::move(*added));
    return added == nullptr ? items : std::vector<T>();
  }
};

/// Collects the log lines of level 2 while it lives.
struct FailureLines : Shared<std::string> {
  FailureLines() {
    SetLogHandler([this](uint32_t level, std::string_view text) { level == 2 ? Add(std::string(text)) : void(); });
  }
  ~FailureLines() { SetLogHandler(nullptr); }
};

/// An event loop served by a thread of its own.
struct RunningLoop {
  uint32_t id = static_cast<uint32_t>(WUX_EPOLL_Create(0));
  std::thread thread{[this] { WUX_EPOLL_Run(id, 5, -1); }};
  ~RunningLoop() { WUX_EPOLL_Destroy(id), thread.join(); }
};
}  // namespace tarq::standin
