#include "frame/framework_binding.h"

namespace tarq {
namespace {

/// Selector that names the telemetry framework's table to the component registry.
constexpr uint32_t kTelemetryFramework = 1000;

/// Written at start before the module has a thread of its own, only read afterwards.
struct {
  uint32_t moduleId = 0;
  FrameworkTable* savroVtbl = nullptr;  ///< the framework's, never released
} g_binding;

}  // namespace

void StoreModuleId(uint32_t moduleId) { g_binding.moduleId = moduleId; }

uint32_t SAVRO_TARQ_InitTlmFrmVtbl() {
  return COMP_GetVTable(kTelemetryFramework, kTelemetryFramework, &g_binding.savroVtbl);
}

FrameworkTable* SAVRO_TARQ_GetTlmFrmVtbl() { return g_binding.savroVtbl; }

uint32_t SAVRO_TARQ_GetModuleId() { return g_binding.moduleId; }

}  // namespace tarq
