#include "frame/log.h"

#include <cstdarg>

#include "frame/framework_binding.h"
#include "platform/bounded.h"

namespace tarq {

void SAVRO_TARQ_WriteTlmLog(uint32_t level, const char* format, ...) {
  if (format == nullptr) return;
  const FrameworkTable* table = SAVRO_TARQ_GetTlmFrmVtbl();
  if (table == nullptr || table->LogWrite == nullptr) return;

  char text[256] = {};
  va_list arguments;
  va_start(arguments, format);
  const int length = vsprintf_s(text, sizeof(text) - 1, format, arguments);
  va_end(arguments);
  if (length < 1) return;
  table->LogWrite(SAVRO_TARQ_GetModuleId(), level, text);
}

}  // namespace tarq
