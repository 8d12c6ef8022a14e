// A subscriber on a Unix socket that counts what it gets.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace tarq::load {

/// Listens at a path and reads one connection after the other, on a thread of its own.
class Reader {
 public:
  enum class Format { kLines, kDelimited };

  Reader(std::string path, Format format);
  ~Reader();

  /// Whole samples read so far.
  uint64_t samples() const { return samples_; }
  /// Stops or goes on reading; the connection stays.
  void Stall(bool stalled);

 private:
  void Run();
  void Count(std::string_view bytes);

  std::string path_;
  Format format_;
  int listener_;
  std::atomic<int> connection_ = -1;
  std::atomic<uint64_t> samples_ = 0;
  std::atomic<bool> ends_ = false;
  uint64_t length_ = 0;  ///< of the sample whose length is being read
  int shift_ = 0;
  uint64_t skip_ = 0;  ///< bytes of the sample that are still to come
  std::mutex mutex_;
  std::condition_variable goOn_;
  bool stalled_ = false;
  std::thread thread_;
};

}  // namespace tarq::load
