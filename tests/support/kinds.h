// The three kinds as the module's tests see them, and records to try them with.
#pragma once

#include <cstring>
#include <random>

#include "frame/lifecycle.h"
#include "intake/sample_buffers.h"
#include "support/platform_double.h"
#include "tasks/task_callbacks.h"
#include "tasks/task_registry.h"

namespace tarq::test {

struct KindCase {
  const char* name;
  uint32_t msgId;
  AddTaskCallback add;
  DelTaskCallback del;
  const char* jsonHeader;
  ListHead* head;
  SampleBuffer** sampleData;
  size_t entrySize;
  size_t periodOffset;
};
inline void PrintTo(const KindCase& kind, std::ostream* out) { *out << kind.name; }

inline const KindCase kKinds[] = {
    {"NativeIp", kNativeIpMsgId, SAVRO_NTVTARQ_AddTlmTask, SAVRO_NTVTARQ_DelTlmTask,
     R"({"tarq":{"flow_native_ip_statistics":{"flow_native_ip_statistic":[)", &g_ntvTarqTlmTaskListHead,
     g_savroNtvTarqSampleData, 136, 0},
    {"Flow", kFlowMsgId, SAVRO_TARQ_FLOW_AddTlmTask, SAVRO_TARQ_FLOW_DelTlmTask,
     R"({"tarq":{"flow_statistics":{"flow_statistic":[)", &g_tarqTlmFlowTaskListHead, g_savroTarqFlowSampleData, 192,
     160},
    {"FlowHop", kFlowHopMsgId, SAVRO_TARQ_FLOWHOP_AddTlmTask, SAVRO_TARQ_FLOWHOP_DelTlmTask,
     R"({"tarq":{"flow_hop_statistics":{"flow_hop_statistic":[)", &g_tarqTlmFlowHopTaskListHead,
     g_savroTarqFlowHopSampleData, 136, 88},
};

inline TaskDescription Description(uint32_t codeType, uint32_t intervalMs = 10'000, uint8_t fill = 0) {
  TaskDescription description{codeType, intervalMs, {}};
  memset(description.opaque, fill, sizeof(description.opaque));
  return description;
}

/// `count` smallest records of the kind, all of one period, as the double's unpacking takes them.
inline std::string Records(const KindCase& kind, uint32_t count, uint32_t period = 0) {
  std::string record(kind.entrySize, '\0');
  memcpy(record.data() + kind.periodOffset, &period, sizeof(period));
  if (kind.msgId == kNativeIpMsgId) reinterpret_cast<NativeIpEntry*>(record.data())->ifName = "";
  std::string records;
  for (; count > 0; --count) records += record;
  return records;
}

inline MessageDescriptor Message(uint32_t msgId, const std::string& payload) {
  return {payload.data(), msgId, static_cast<uint32_t>(payload.size())};
}

/// A started module.
class StartedTest : public ModuleTest {
 protected:
  void SetUp() override { ASSERT_EQ(StartModule(), 0u); }
  void Add(const KindCase& kind, uint32_t tlmId, uint32_t taskId, const TaskDescription& description) {
    EXPECT_EQ(kind.add(tlmId, taskId, &description), 0u);
    platform.RunWorker();
  }
  void Delete(const KindCase& kind, uint32_t tlmId, uint32_t taskId) {
    EXPECT_EQ(kind.del(tlmId, taskId), 0u);
    platform.RunWorker();
  }
};

class EachKind : public StartedTest, public testing::WithParamInterface<KindCase> {};
/// Makes `Suite` a suite of tests that run once per kind.
#define EACH_KIND_SUITE(Suite)      \
  class Suite : public EachKind {}; \
  INSTANTIATE_TEST_SUITE_P(Kinds, Suite, testing::ValuesIn(kKinds), [](const auto& test) { return test.param.name; })

}  // namespace tarq::test
