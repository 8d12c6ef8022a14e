// Report performance: per statistics period, counts of records in and out, in a ring of 64 slots that is saved to the
// database. Everything here runs on the worker thread.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/database.h"

namespace tarq {

inline constexpr uint32_t kReportPerfSlots = 64;

/// Creates the ring, empty. 0, or 1 when there is no memory for it.
TARQ_EXPORT uint32_t SAVRO_TARQ_InitReportPerf();

/// Releases the ring, if there is one.
TARQ_EXPORT void SAVRO_TARQ_DestoryReportPerf();

/// Zeroes the ring and numbers its slots: each then holds period 0. Returns the zeroing's result; 1 without a ring.
TARQ_EXPORT uint32_t SAVRO_TARQ_ResetReportPerf();

/// Reads the wall clock: seconds since the Unix epoch and their millisecond part. A clock that cannot be read is logged
/// and leaves both as they were.
TARQ_EXPORT void SAVRO_TARQ_SetReportPerfTimestamps(uint32_t* seconds, uint32_t* milliseconds);

/// Gives the period's slot, number modulo 64, to `period`: its counts start at 0 and now.
TARQ_EXPORT void SAVRO_TARQ_UpdateReportPerfPeriodIndex(uint32_t period);

/// Count records and bytes in or out for a period. A slot that holds another period, older or newer, takes this one up
/// and forgets the other's counts. Counts wrap at 2^32; without a ring nothing happens.
TARQ_EXPORT void SAVRO_TARQ_UpdateReportPerfInWuxItermCnt(uint32_t period, uint32_t items, uint32_t bytes);
TARQ_EXPORT void SAVRO_TARQ_UpdateReportPerfOutItemCnt(uint32_t period, uint32_t items, uint32_t bytes);

/// Counts the records of one message, whose periods seldom change. Each counts as the two functions above do.
class MessagePerf {
 public:
  void CountIn(uint32_t period, uint32_t bytes) {
    if (record_ == nullptr || record_->period_index != period) TakeUp(period);
    if (record_ == nullptr) return;
    ++record_->in_wux_item_count;
    record_->in_wux_item_byte_count += bytes;
  }
  /// For the period that was counted in last.
  void CountOut(uint32_t bytes) {
    if (record_ == nullptr) return;
    ++record_->out_item_count;
    record_->out_item_byte_count += bytes;
  }

 private:
  void TakeUp(uint32_t period);

  ReportPerfRecord* record_ = nullptr;  ///< in the ring, marked changed; null without one
};

/// Saves every slot that changed since it was last saved. One that cannot be saved is logged and waits for its next
/// change.
TARQ_EXPORT void SAVRO_TARQ_UpdateReportPerfToDb();

/// Empties the database table; the ring stays as it is.
TARQ_EXPORT void SAVRO_TARQ_ClearReportPerfData();

}  // namespace tarq
