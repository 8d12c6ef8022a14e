// Processing of one statistics message: unpack, count in, encode, append to the sample buffers. The three kinds differ
// by a table only. Everything here runs on the worker thread.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/framework.h"
#include "platform/message.h"
#include "runtime/stats_queue.h"

namespace tarq {

/// Encodes every record of `message` into the buffers that `kindEncodeType` names, uploading a buffer that is full.
/// Returns the number of records; 0 for a message that does not unpack.
TARQ_EXPORT uint32_t SAVRO_NTVTARQ_STATS_StatsMsgProc(uint32_t kindEncodeType, const StatsMessage* message,
                                                      SampleBuffer* gpb, SampleBuffer* json);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOW_STATS_StatsMsgProc(uint32_t kindEncodeType, const StatsMessage* message,
                                                        SampleBuffer* gpb, SampleBuffer* json);
TARQ_EXPORT uint32_t SAVRO_TARQ_FLOWHOP_STATS_StatsMsgProc(uint32_t kindEncodeType, const StatsMessage* message,
                                                           SampleBuffer* gpb, SampleBuffer* json);

/// Encodes one record into the buffers that `kindEncodeType` names, JSON before GPB. Mind the order of the buffers.
TARQ_EXPORT void SAVRO_NTVTARQ_STATS_Encode(uint32_t kindEncodeType, const NativeIpEntry* entry, SampleBuffer* json,
                                            SampleBuffer* gpb);
TARQ_EXPORT void SAVRO_TARQ_FLOW_STATS_Encode(uint32_t kindEncodeType, const FlowEntry* entry, SampleBuffer* json,
                                              SampleBuffer* gpb);
TARQ_EXPORT void SAVRO_TARQ_FLOWHOP_STATS_Encode(uint32_t kindEncodeType, const FlowHopEntry* entry, SampleBuffer* json,
                                                 SampleBuffer* gpb);

/// Appends one record to `buffer`. When it does not fit, the buffer is uploaded and emptied first. A record that cannot
/// be encoded is logged and dropped.
TARQ_EXPORT void SAVRO_NTVTARQ_STATS_EncodeStatsData(const NativeIpEntry* entry, SampleBuffer* buffer,
                                                     uint32_t codeType);
TARQ_EXPORT void SAVRO_TARQ_FLOW_STATS_EncodeStatsData(const FlowEntry* entry, SampleBuffer* buffer, uint32_t codeType);
TARQ_EXPORT void SAVRO_TARQ_FLOWHOP_STATS_EncodeStatsData(const FlowHopEntry* entry, SampleBuffer* buffer,
                                                          uint32_t codeType);

}  // namespace tarq
