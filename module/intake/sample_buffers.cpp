#include "intake/sample_buffers.h"

namespace tarq {

SampleBuffer* g_savroNtvTarqSampleData[2] = {};
SampleBuffer* g_savroTarqFlowSampleData[2] = {};
SampleBuffer* g_savroTarqFlowHopSampleData[2] = {};

}  // namespace tarq
