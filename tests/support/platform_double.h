// A platform for the module's tests: single-threaded, records every call, owns the clock, counts every buffer and
// object, and fails any call on request. The test drives the worker: it ticks the timer, delivers messages and runs the
// loop.
#pragma once

#include <gtest/gtest.h>
#include <sys/time.h>

#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "frame/lifecycle.h"
#include "platform/channel.h"
#include "platform/database.h"
#include "platform/framework.h"
#include "platform/message.h"
#include "platform/queue.h"

namespace tarq::test {

struct LogLine {
  uint32_t level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};

struct Upload {
  uint32_t tlmId, taskId, isActiveReportEnd, recordCount;
  uint64_t collectTimestamp;
  std::string data;
};

struct Queue {
  std::string name;
  uint32_t kind, depth, elementSize;
  std::deque<uint64_t> elements;
  uint32_t (*onReadable)(void*) = nullptr;
  QueueMonitor monitor{};
  uint32_t (*onEvent)(uint32_t) = nullptr;
};

class Platform {
 public:
  static Platform& Get();
  Platform();

  /// Fails the calls of that name from the `nth` from now on, `times` of them.
  void Fail(const std::string& call, int times = 1, int nth = 1) { faults[call] = {nth, times}; }
  /// Whether this call is to fail; every platform function asks first. Records the call.
  bool Fails(const std::string& call);

  /// Names of the calls so far that begin with one of `prefixes`, in order.
  std::vector<std::string> Calls(const std::vector<std::string>& prefixes) const;
  /// Log texts of a level, without the label and line number.
  std::vector<std::string> Texts(uint32_t level) const;

  Queue* QueueNamed(const std::string& name);
  /// Calls the queues' readers until they are empty.
  void RunWorker();
  /// Lets the timer tick, the worker running after each tick.
  void Tick(int ticks = 1);
  /// Delivers one batch of messages on the channel; a message's payload is its array of entry records.
  uint32_t Deliver(const std::vector<MessageDescriptor>& batch);

  int failAt = 0;      ///< the call, counted from the start over all names, that fails; 0 for none
  std::string failed;  ///< its name, once it failed
  FrameworkTable table;
  bool bindTable = true;
  uint32_t moduleId = 0;   ///< what every call through the table has to carry
  bool nullArray = false;  ///< unpacking gives a count without an array
  std::vector<std::string> calls;
  std::map<std::string, std::pair<int, int>> faults;  // name -> calls until the first failure, failures left
  std::vector<LogLine> log;
  std::vector<Upload> uploads;
  std::vector<std::pair<const char*, SamplePathRegistration>> paths;
  std::map<void*, uint32_t> buffers;
  std::vector<std::unique_ptr<Queue>> queues;
  uint32_t (*onTick)(void*) = nullptr;
  uint32_t (*taskEntry)(void*) = nullptr;
  ChannelConfig channel{};
  timeval now{1'700'000'000, 123'999};
  std::map<uint32_t, ReportPerfRecord> rows;
  int databaseObjects = 0;
  int unpackedLists = 0;
};

/// A test of the module on the double. At the end nothing may be left open that the module does not keep for good.
class ModuleTest : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(platform.databaseObjects, 0);
    EXPECT_EQ(platform.unpackedLists, 0);
    for (const auto& [buffer, size] : platform.buffers) free(buffer);  // the framework's memory outlives the module
  }
  uint32_t StartModule() {
    platform.moduleId = 77;
    return SAVRO_TARQ_Init(77);
  }
  Platform& platform = Platform::Get();
};

}  // namespace tarq::test
