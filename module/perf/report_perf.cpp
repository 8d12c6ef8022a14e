#include "perf/report_perf.h"

#include <sys/time.h>

#include "frame/buffers.h"
#include "frame/log.h"
#include "perf/report_perf_table.h"

namespace tarq {
namespace {

struct ReportPerfSlot {
  uint32_t dirty;           ///< 1 when changed since the last save
  ReportPerfRecord record;  ///< saved as it lies
};
static_assert(sizeof(ReportPerfSlot) == 64);

constexpr uint32_t kRingBytes = kReportPerfSlots * sizeof(ReportPerfSlot);
static_assert(kRingBytes == 4096);

struct {
  ReportPerfSlot* slots = nullptr;  ///< the ring; null until the first task is added
} g_perf;

constexpr uint32_t SlotNumber(uint32_t period) { return period % kReportPerfSlots; }

/// The period's slot, taken up for it and marked changed; null without a ring.
ReportPerfRecord* CountingSlot(uint32_t period) {
  if (g_perf.slots == nullptr) return nullptr;
  ReportPerfSlot& slot = g_perf.slots[SlotNumber(period)];
  if (slot.record.period_index != period) SAVRO_TARQ_UpdateReportPerfPeriodIndex(period);
  slot.dirty = 1;
  return &slot.record;
}

}  // namespace

uint32_t SAVRO_TARQ_InitReportPerf() {
  void* ring = SAVRO_TARQ_BufAlloc(kRingBytes);
  if (ring == nullptr) return 1;
  g_perf.slots = static_cast<ReportPerfSlot*>(ring);
  SAVRO_TARQ_ResetReportPerf();
  return 0;
}

void SAVRO_TARQ_DestoryReportPerf() {
  SAVRO_TARQ_BufFree(g_perf.slots);
  g_perf.slots = nullptr;
}

uint32_t SAVRO_TARQ_ResetReportPerf() {
  if (g_perf.slots == nullptr) return 1;
  const int ret = memset_s(g_perf.slots, kRingBytes, 0, kRingBytes);
  for (uint32_t i = 0; i < kReportPerfSlots; ++i) g_perf.slots[i].record.history_id = i;
  return static_cast<uint32_t>(ret);
}

void SAVRO_TARQ_SetReportPerfTimestamps(uint32_t* seconds, uint32_t* milliseconds) {
  timeval now = {};
  if (gettimeofday(&now, nullptr) != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][NTVTARQ_STATS_GetTimestamps] Get collect timestamp failed");
    return;
  }
  *seconds = static_cast<uint32_t>(now.tv_sec);
  *milliseconds = static_cast<uint32_t>(now.tv_usec / 1000);
}

void SAVRO_TARQ_UpdateReportPerfPeriodIndex(uint32_t period) {
  if (g_perf.slots == nullptr) return;
  ReportPerfRecord& record = g_perf.slots[SlotNumber(period)].record;
  record = {};
  record.history_id = SlotNumber(period);
  record.period_index = period;
  SAVRO_TARQ_SetReportPerfTimestamps(&record.start_time_s, &record.start_time_ms);
}

void MessagePerf::TakeUp(uint32_t period) { record_ = CountingSlot(period); }

void SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(uint32_t period, uint32_t items, uint32_t bytes) {
  ReportPerfRecord* record = CountingSlot(period);
  if (record == nullptr) return;
  record->in_wux_item_count += items;
  record->in_wux_item_byte_count += bytes;
}

void SAVRO_TARQ_UpdateReportPerfOutItemCnt(uint32_t period, uint32_t items, uint32_t bytes) {
  ReportPerfRecord* record = CountingSlot(period);
  if (record == nullptr) return;
  record->out_item_count += items;
  record->out_item_byte_count += bytes;
}

void SAVRO_TARQ_UpdateReportPerfToDb() {
  if (g_perf.slots == nullptr) return;
  for (uint32_t i = 0; i < kReportPerfSlots; ++i) {
    ReportPerfSlot& slot = g_perf.slots[i];
    if (slot.dirty != 1) continue;
    SAVRO_TARQ_SetReportPerfTimestamps(&slot.record.end_time_s, &slot.record.end_time_ms);
    const uint32_t ret = SAVRO_TARQ_AddReportPerfEntryDbData(&slot.record);
    if (ret != 0) {
      TARQ_LOG(
          kLogFailure,
          "[%s:%d][NTVTARQ_UpdateReportPerfToDb] Update report perf to db failed ret: %u, index: %u, periodIndex: %u.",
          ret, i, slot.record.period_index);
    }
    slot.dirty = 0;
  }
}

void SAVRO_TARQ_ClearReportPerfData() { SAVRO_TARQ_TruncateReportPerfEntryDbData(); }

}  // namespace tarq
