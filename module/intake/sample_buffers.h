// The sample buffers: per kind a pair in which encoded records gather before they are uploaded.
#pragma once

#include "export.h"
#include "platform/framework.h"

namespace tarq {

/// Each kind's buffers, by code type; null until the first collection cycle, then the module's for good. Worker thread.
TARQ_EXPORT SampleBuffer* g_savroNtvTarqSampleData[2];
TARQ_EXPORT SampleBuffer* g_savroTarqFlowSampleData[2];
TARQ_EXPORT SampleBuffer* g_savroTarqFlowHopSampleData[2];

}  // namespace tarq
