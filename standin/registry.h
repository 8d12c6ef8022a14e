// Objects behind the seam's opaque handles. A handle is a number that is never used again, looked up on every use: a
// null, stale or made-up one is refused, and an object lives on until the last call that found it has returned.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tarq::standin {

/// Objects of one type by their number, 1 for the first. Any thread may call any function.
template <class T>
class Registry {
 public:
  uint64_t Add(std::shared_ptr<T> object) {
    std::lock_guard lock(mutex_);
    objects_.emplace(++lastId_, std::move(object));
    return lastId_;
  }

  /// Returns the object, or null.
  std::shared_ptr<T> Find(uint64_t id) const {
    std::lock_guard lock(mutex_);
    const auto found = objects_.find(id);
    return found == objects_.end() ? nullptr : found->second;
  }

  /// Takes the object out and returns it, or null. Of several callers one gets it.
  std::shared_ptr<T> Take(uint64_t id) {
    std::lock_guard lock(mutex_);
    auto node = objects_.extract(id);
    return node.empty() ? nullptr : std::move(node.mapped());
  }

  /// All objects in order of creation.
  std::vector<std::shared_ptr<T>> All() const {
    std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<T>> all;
    for (const auto& [id, object] : objects_) all.push_back(object);
    return all;
  }

 private:
  mutable std::mutex mutex_;
  std::map<uint64_t, std::shared_ptr<T>> objects_;
  uint64_t lastId_ = 0;
};

/// The process's registry of `T`. Never destroyed: a task may still be running when the process ends.
template <class T>
Registry<T>& Objects() {
  static auto* const registry = new Registry<T>;
  return *registry;
}

inline uint64_t IdOf(const void* handle) { return reinterpret_cast<uintptr_t>(handle); }
inline void* HandleOf(uint64_t id) { return reinterpret_cast<void*>(static_cast<uintptr_t>(id)); }

}  // namespace tarq::standin
