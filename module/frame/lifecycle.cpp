#include "frame/lifecycle.h"

#include "frame/framework_binding.h"
#include "frame/log.h"
#include "frame/sample_paths.h"
#include "intake/collection_cycle.h"
#include "runtime/event_queue.h"
#include "runtime/worker.h"

namespace tarq {
namespace {

uint32_t TearDown(uint32_t ret) {
  SAVRO_TARQ_Destory();
  return ret;
}

}  // namespace

uint32_t SAVRO_TARQ_Init(uint32_t moduleId) {
  StoreModuleId(moduleId);
  uint32_t ret = SAVRO_TARQ_InitTlmFrmVtbl();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_Init] init vtbl failed, ret: %u.", ret);
    return ret;
  }
  ret = SAVRO_TARQ_SampleXpathRegister();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_Init]  register simple xpath failed, ret: %u.", ret);
    return TearDown(ret);
  }
  ret = SAVRO_TARQ_THREAD_Init();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_Init] thread init failed, ret: %u.", ret);
    return TearDown(ret);
  }
  ret = SAVRO_TARQ_EVENT_Init();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_Init] Event init failed, ret: %u.", ret);
    return TearDown(ret);
  }
  ret = SAVRO_TARQ_STATS_Init();
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_Init] stats init failed, ret: %u.", ret);
    return TearDown(ret);
  }
  return 0;
}

uint32_t SAVRO_TARQ_Destory() {
  SAVRO_TARQ_STATS_Destory();
  return SAVRO_TARQ_THREAD_Destroy();
}

}  // namespace tarq
