// The collection cycle: drains the stats queue into the sample buffers and uploads them. The cycle and all it touches
// run on the worker thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "export.h"
#include "platform/framework.h"
#include "runtime/stats_queue.h"

namespace tarq {

/// What a statistics kind is to the cycle.
struct StatsMapEntry {
  uint32_t msgId;
  uint32_t kindEncodeType;    ///< a `KindEncodeType`; what the kind's tasks want, for one cycle
  SampleBuffer** sampleData;  ///< the kind's pair of buffers, by code type
  /// Encodes a message's records into the buffers and returns their number.
  uint32_t (*statsMsgProc)(uint32_t kindEncodeType, const StatsMessage* message, SampleBuffer* gpb, SampleBuffer* json);
};

static_assert(sizeof(StatsMapEntry) == 24 && offsetof(StatsMapEntry, kindEncodeType) == 4);
static_assert(offsetof(StatsMapEntry, sampleData) == 8 && offsetof(StatsMapEntry, statsMsgProc) == 16);

/// Native IP, flow, flow-hop: the order of every walk.
TARQ_EXPORT StatsMapEntry g_savroStatsMap[3];

/// Creates the stats queue and starts the channel server. 0, or 1 with the queue left for `SAVRO_TARQ_STATS_Destory`.
/// Called once, at module start.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_Init();

/// Stops the channel server, then destroys the stats queue. The sample buffers stay.
TARQ_EXPORT void SAVRO_TARQ_STATS_Destory();

/// Handler of stats events, the cycle itself. `payload` points at the u32 timer second count; `length` is not used.
/// 0, or 1 when a message's kind is missing from the stats map.
TARQ_EXPORT uint32_t SAVRO_TARQ_STATS_UploadStatsData(const void* payload, uint32_t length);

/// Wall clock in milliseconds since the Unix epoch; 0, and a log line, when it cannot be read.
TARQ_EXPORT uint64_t SAVRO_TARQ_STATS_GetTimestamps();

/// Stamps both buffers, where present, with one reading of the clock.
TARQ_EXPORT void SAVRO_TARQ_STATS_SetCollectTimestamp(SampleBuffer* gpb, SampleBuffer* json);

/// Allocates the entry's buffers where absent and zeroes them, GPB first; a failure is logged, leaves null and ends it.
TARQ_EXPORT void SAVRO_TARQ_STATS_InitSampleBuffer(StatsMapEntry* entry);

/// Prepares all three entries for a cycle: encode type, buffers, time stamp.
TARQ_EXPORT void SAVRO_TARQ_STATS_InitStatsMap();

/// The kind's entry, or null.
TARQ_EXPORT StatsMapEntry* SAVRO_TARQ_STATS_GetStatsMap(uint32_t msgId);

/// Uploads what the buffers hold, JSON before GPB within a kind.
TARQ_EXPORT void SAVRO_TARQ_STATS_UploadRest();

}  // namespace tarq
