#include "frame/sample_paths.h"

#include "frame/framework_binding.h"
#include "frame/log.h"
#include "tasks/task_callbacks.h"

namespace tarq {
namespace {

struct SampleXpath {
  char path[512];  ///< the framework may keep its address
  AddTaskCallback addTask;
  DelTaskCallback delTask;
};

constexpr SampleXpath g_tarqSampleXpathTable[] = {
    {"quorin-tarq:tarq/quorin-tarq-statistics:flow-native-ip-statistics/flow-native-ip-statistic",
     SAVRO_NTVTARQ_AddTlmTask, SAVRO_NTVTARQ_DelTlmTask},
    {"quorin-tarq:tarq/quorin-tarq-statistics:flow-statistics/flow-statistic",  //
     SAVRO_TARQ_FLOW_AddTlmTask, SAVRO_TARQ_FLOW_DelTlmTask},
    {"quorin-tarq:tarq/quorin-tarq-statistics:flow-hop-statistics/flow-hop-statistic",  //
     SAVRO_TARQ_FLOWHOP_AddTlmTask, SAVRO_TARQ_FLOWHOP_DelTlmTask},
};

}  // namespace

uint32_t SAVRO_TARQ_SampleXpathRegister() {
  const FrameworkTable* table = SAVRO_TARQ_GetTlmFrmVtbl();
  if (table == nullptr || table->SampleXpathRegister == nullptr) return 1;

  SamplePathRegistration registration = {};
  registration.word32 = 10000;
  registration.bytes36[2] = 1;
  registration.query = SAVRO_TARQ_QueryFunc;
  registration.word56 = 1;
  for (const SampleXpath& row : g_tarqSampleXpathTable) {
    registration.addTask = row.addTask;
    registration.delTask = row.delTask;
    const uint32_t ret = table->SampleXpathRegister(SAVRO_TARQ_GetModuleId(), row.path, &registration);
    if (ret != 0) {
      TARQ_LOG(kLogFailure, "[%s:%d][SampleXpathRegister] failed, ret: %u, xpath: %s.", ret, row.path);
    }
  }
  return 0;
}

uint32_t SAVRO_TARQ_QueryFunc() { return 0; }

}  // namespace tarq
