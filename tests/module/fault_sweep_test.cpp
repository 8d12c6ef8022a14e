// One scenario, run again and again: the 1st, 2nd, 3rd ... platform call fails until a run needs no more failures. Each
// run is a process of its own, forked here.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "support/kinds.h"

namespace tarq::test {
namespace {

constexpr uint32_t kRecords = 130;  // of the smallest, more than a JSON buffer of any kind holds

/// Calls whose failure the module has nothing to say of, or that it cannot tell from a quiet outcome.
const std::set<std::string> kSilent = {"COMP_GetVTable",    "BufFree",
                                       "free_unpacked",     "unpack",
                                       "vsprintf_s",        "memset_s",
                                       "db_read",           "db_create3",
                                       "db_release",        "WUX_QUE_AsyRead",
                                       "WUX_QUE_Destory",   "WUX_EPOLL_Destroy",
                                       "WUX_TIMER_Destroy", "WUX_CHAN_UCServerDestory"};

class Sweep {
 public:
  /// Runs the scenario with the `failing` platform call failing. True when the run had that many calls.
  bool Run(int failing) {
    platform.failAt = failing;
    platform.moduleId = 77;
    if (SAVRO_TARQ_Init(77) != 0) {
      EXPECT_EQ(SAVRO_TARQ_Init(77), 0u) << "started again";
    }
    Subscribe();
    DeliverAll();
    platform.Tick(6);
    kKinds[1].del(7, 1);
    platform.Tick(3);
    EXPECT_GE(CompleteSamples(), 4u) << "one fault costs one kind at most";
    const bool failed = !platform.failed.empty();
    if (failed && !kSilent.contains(platform.failed)) {
      EXPECT_FALSE(platform.Texts(kLogFailure).empty()) << "the fault is logged";
    }
    platform.failAt = 0;
    Subscribe();
    platform.Tick(3);  // what the faulty cycle may have left behind
    platform.uploads.clear();
    DeliverAll();
    platform.Tick(3);
    EXPECT_EQ(CompleteSamples(), 6u) << "a later cycle works";
    for (const KindCase& kind : kKinds) kind.del(7, 0), kind.del(7, 1);
    platform.RunWorker();
    SAVRO_TARQ_Destory();
    EXPECT_EQ(platform.databaseObjects, 0);
    EXPECT_EQ(platform.unpackedLists, 0);
    EXPECT_EQ(platform.buffers.size(), 7u) << "six sample buffers and the period ring";
    return failed;
  }

  Platform& platform = Platform::Get();

 private:
  /// A task per kind and encoding; `tlmId` is the kind's place, so that uploads tell their kind.
  void Subscribe() {
    for (const uint32_t codeType : {0u, 1u}) {
      const TaskDescription description = Description(codeType);
      for (const KindCase& kind : kKinds) kind.add(7, codeType, &description), platform.RunWorker();
    }
  }
  void DeliverAll() {
    for (const KindCase& kind : kKinds) {
      const std::string records = Records(kind, kRecords);
      platform.Deliver({Message(kind.msgId, records)});
    }
  }
  /// How many pairs of kind and encoding got every record.
  uint32_t CompleteSamples() {
    std::map<std::string, uint32_t> records;
    for (const Upload& upload : platform.uploads) {
      records[upload.taskId == 0 ? upload.data.substr(0, 1) : upload.data.substr(0, 20)] += upload.recordCount;
    }
    uint32_t complete = 0;
    for (const auto& [pair, count] : records) complete += count == kRecords;
    return complete;
  }
};

TEST(FaultSweep, EveryPlatformCallMayFailOnce) {
  int failing = 0;
  for (bool more = true; more; ++failing) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      Sweep sweep;
      const bool failed = sweep.Run(failing + 1);
      const bool good = !testing::Test::HasFailure();
      if (!good) fprintf(stderr, "with call %d failing: %s\n", failing + 1, sweep.platform.failed.c_str());
      _exit(!good ? 2 : failed ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << "with call " << failing + 1 << " failing";
    more = WEXITSTATUS(status) == 0;
  }
  EXPECT_GT(failing, 150);
}

}  // namespace
}  // namespace tarq::test
