#include "perf/report_perf_table.h"

#include "frame/log.h"

namespace tarq {
namespace {

constexpr uint32_t kKeyForm = 0x00010008;  // key length 8 in the low half

struct FieldSetter {
  uint32_t (*set)(void* object, uint32_t value);
  uint32_t ReportPerfRecord::*field;
};

// clang-format off
constexpr FieldSetter kFieldSetters[] = {
    {db_set_tarq_savro_report_perf_period_index,           &ReportPerfRecord::period_index},
    {db_set_tarq_savro_report_perf_in_wux_msg_count,       &ReportPerfRecord::in_wux_msg_count},
    {db_set_tarq_savro_report_perf_in_wux_msg_byte_count,  &ReportPerfRecord::in_wux_msg_byte_count},
    {db_set_tarq_savro_report_perf_in_wux_item_count,      &ReportPerfRecord::in_wux_item_count},
    {db_set_tarq_savro_report_perf_in_wux_item_byte_count, &ReportPerfRecord::in_wux_item_byte_count},
    {db_set_tarq_savro_report_perf_out_msg_count,          &ReportPerfRecord::out_msg_count},
    {db_set_tarq_savro_report_perf_out_msg_byte_count,     &ReportPerfRecord::out_msg_byte_count},
    {db_set_tarq_savro_report_perf_out_item_count,         &ReportPerfRecord::out_item_count},
    {db_set_tarq_savro_report_perf_out_item_byte_count,    &ReportPerfRecord::out_item_byte_count},
    {db_set_tarq_savro_report_perf_start_time_s,           &ReportPerfRecord::start_time_s},
    {db_set_tarq_savro_report_perf_start_time_ms,          &ReportPerfRecord::start_time_ms},
    {db_set_tarq_savro_report_perf_end_time_s,             &ReportPerfRecord::end_time_s},
    {db_set_tarq_savro_report_perf_end_time_ms,            &ReportPerfRecord::end_time_ms},
};
// clang-format on

}  // namespace

uint32_t SAVRO_TARQ_AddReportPerfEntryDbData(const ReportPerfRecord* record) {
  const KeyDescriptor descriptor = {kKeyForm, {}};
  const ReportPerfKey key = {0, record->history_id};
  const uint32_t ret = SAVRO_TARQ_CheckReportPerfEntryDataExist(&descriptor, &key) != 0
                           ? SAVRO_TARQ_WriteReportPerfEntryDb(record)
                           : SAVRO_TARQ_UpdateReportPerfEntryDb(&descriptor, &key, record);
  if (ret != 0) {
    TARQ_LOG(
        kLogFailure,
        "[%s:%d][TARQ_AddReportPerfEntryDbData] Write db tarq_savro_report_perf failed ret: %u, history_id: %u, period_index: %u.",
        ret, record->history_id, record->period_index);
    return 1;
  }
  TARQ_LOG(
      kLogMilestone,
      "[%s:%d][TARQ_AddReportPerfEntryDbData] Write db tarq_savro_report_perf success, ret: %u, history_id: %u, period_index: %u.",
      ret, record->history_id, record->period_index);
  return 0;
}

uint32_t SAVRO_TARQ_CheckReportPerfEntryDataExist(const KeyDescriptor* descriptor, const ReportPerfKey* key) {
  void* object = nullptr;
  if (db_create_tarq_savro_report_perf_obj(kDatabaseRead, 0, &object) != 0) return 1;
  const uint32_t ret = db_read_obj(object, descriptor, key);
  db_release_tarq_savro_report_perf_object(object);
  return ret != 0 ? 1 : 0;
}

uint32_t SAVRO_TARQ_WriteReportPerfEntryDb(const ReportPerfRecord* record) {
  void* object = nullptr;
  uint32_t ret = db_create_tarq_savro_report_perf_obj(kDatabaseInsert, 0, &object);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_WriteReportPerfEntryDb] Create tarq_savro_report_perf failed ret: %d.", ret);
    return 1;
  }
  ret = db_set_tarq_savro_report_perf_all_fields(object, record, sizeof(*record));
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_WriteReportPerfEntryDb] Set tarq_savro_report_perf all field failed ret: %d.",
             ret);
    db_release_tarq_savro_report_perf_object(object);
    return 1;
  }
  ret = db_write_obj(object);
  db_release_tarq_savro_report_perf_object(object);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_WriteReportPerfEntryDb] Write tarq_savro_report_perf failed ret: %d.", ret);
    return 1;
  }
  return 0;
}

uint32_t SAVRO_TARQ_UpdateReportPerfEntryDb(const KeyDescriptor* descriptor, const ReportPerfKey* key,
                                            const ReportPerfRecord* record) {
  void* object = nullptr;
  uint32_t ret = db_create_tarq_savro_report_perf_obj(kDatabaseUpdate, 0, &object);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][UpdateDbData] Create tarq_savro_report_perf obj failed, ret: %d.", ret);
    return 1;
  }
  for (const FieldSetter& setter : kFieldSetters) ret |= setter.set(object, record->*setter.field);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][UpdateDbData] set tarq_savro_report_perf field failed, ret: %d.", ret);
    db_release_tarq_savro_report_perf_object(object);
    return 1;
  }
  ret = db_update_obj(object, descriptor, key);
  db_release_tarq_savro_report_perf_object(object);
  if (ret != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][UpdateDbData] Update tarq_savro_report_perf failed, ret: %d.", ret);
    return 1;
  }
  return 0;
}

void SAVRO_TARQ_TruncateReportPerfEntryDbData() {
  if (db_truncate_table("tarq_savro_report_perf", 1) != 0) {
    TARQ_LOG(kLogFailure, "[%s:%d][TARQ_TruncateReportPerfEntryDbData] Truncate db data failed.");
  }
}

}  // namespace tarq
