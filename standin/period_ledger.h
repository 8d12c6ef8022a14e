// What the rows of the period table have to account for: kept from the records unpacked, beside the module's own
// counts.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <utility>

namespace tarq::standin {

/// The table has 64 slots; a period's is its number modulo 64. Taking up another period forgets what of the last one
/// was in no row yet. Worker thread, but for the counts.
class PeriodLedger {
 public:
  static PeriodLedger& Get();

  /// Records of one period were unpacked, in the order of calls.
  void AddUnpacked(uint32_t period, uint64_t records) {
    Slot& slot = slots_[period % slots_.size()];
    if (slot.period != period) {
      forgotten_ += slot.inNoRow;
      inNoRow_ -= slot.inNoRow;
      slot = {period, 0};
    }
    slot.inNoRow += records;
    inNoRow_ += records;
  }
  /// A row of that slot was handed to the database.
  void AddRow(uint32_t slot) { inNoRow_ -= std::exchange(slots_[slot % slots_.size()].inNoRow, 0); }

  /// Records of periods that were displaced before a row told of them. Any thread.
  uint64_t forgotten() const { return forgotten_; }
  /// Records that no row tells of yet. Any thread.
  uint64_t inNoRow() const { return inNoRow_; }

 private:
  struct Slot {
    uint32_t period = 0;
    uint64_t inNoRow = 0;
  };
  std::array<Slot, 64> slots_;
  std::atomic<uint64_t> forgotten_ = 0, inNoRow_ = 0;
};

inline constinit PeriodLedger g_periodLedger;
inline PeriodLedger& PeriodLedger::Get() { return g_periodLedger; }

}  // namespace tarq::standin
