#include "frame/buffers.h"

#include "frame/framework_binding.h"

namespace tarq {

void* SAVRO_TARQ_BufAlloc(uint32_t size) {
  const FrameworkTable* table = SAVRO_TARQ_GetTlmFrmVtbl();
  if (table == nullptr || table->BufAlloc == nullptr) return nullptr;
  return table->BufAlloc(SAVRO_TARQ_GetModuleId(), size);
}

void* SAVRO_TARQ_BufAllocZero(uint32_t size) {
  void* buffer = SAVRO_TARQ_BufAlloc(size);
  if (buffer != nullptr) memset_s(buffer, size, 0, size);
  return buffer;
}

void SAVRO_TARQ_BufFree(void* buffer) {
  const FrameworkTable* table = SAVRO_TARQ_GetTlmFrmVtbl();
  if (buffer == nullptr || table == nullptr || table->BufFree == nullptr) return;
  table->BufFree(SAVRO_TARQ_GetModuleId(), buffer);
}

}  // namespace tarq
