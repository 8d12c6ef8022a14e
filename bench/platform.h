// A platform without threads or sockets, so that what is measured is the module and the unpacking of its messages.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/channel.h"
#include "platform/framework.h"

namespace tarq::bench {

/// What the module has registered, and what it has uploaded.
struct Platform {
  ReceiveCallback onReceive = nullptr;
  uint32_t (*onTick)(void* context) = nullptr;
  uint64_t uploads = 0;
  uint64_t uploadedRecords = 0;

  /// Three seconds pass: the worker collects until nothing waits.
  void Collect();
  /// Runs the worker until nothing waits.
  void RunWorker();
};

Platform& ThePlatform();

}  // namespace tarq::bench
