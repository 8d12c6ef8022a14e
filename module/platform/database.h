// The database access library: operations on the table "tarq_savro_report_perf", one row per report-performance slot.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarq {

/// One row: fifteen u32 columns named as the fields. The first two are the key.
struct ReportPerfRecord {
  uint32_t reserved;                ///< always 0; first half of the key
  uint32_t history_id;              ///< slot number, 0 to 63; second half of the key
  uint32_t period_index;            ///< number of the period that the slot holds
  uint32_t in_wux_msg_count;        ///< always 0
  uint32_t in_wux_msg_byte_count;   ///< always 0
  uint32_t in_wux_item_count;       ///< entry records counted in
  uint32_t in_wux_item_byte_count;  ///< bytes of the unpacked entry records
  uint32_t out_msg_count;           ///< always 0
  uint32_t out_msg_byte_count;      ///< always 0
  uint32_t out_item_count;          ///< encoded records counted out, once per encoding
  uint32_t out_item_byte_count;     ///< bytes of the encoded records
  uint32_t start_time_s;            ///< when the slot took up its period, seconds since the Unix epoch
  uint32_t start_time_ms;           ///< millisecond part, 0 to 999
  uint32_t end_time_s;              ///< when the slot was last saved, seconds since the Unix epoch
  uint32_t end_time_ms;             ///< millisecond part, 0 to 999
};
static_assert(sizeof(ReportPerfRecord) == 60);
static_assert(offsetof(ReportPerfRecord, history_id) == 4);
static_assert(offsetof(ReportPerfRecord, period_index) == 8);
static_assert(offsetof(ReportPerfRecord, in_wux_msg_count) == 12);
static_assert(offsetof(ReportPerfRecord, in_wux_msg_byte_count) == 16);
static_assert(offsetof(ReportPerfRecord, in_wux_item_count) == 20);
static_assert(offsetof(ReportPerfRecord, in_wux_item_byte_count) == 24);
static_assert(offsetof(ReportPerfRecord, out_msg_count) == 28);
static_assert(offsetof(ReportPerfRecord, out_msg_byte_count) == 32);
static_assert(offsetof(ReportPerfRecord, out_item_count) == 36);
static_assert(offsetof(ReportPerfRecord, out_item_byte_count) == 40);
static_assert(offsetof(ReportPerfRecord, start_time_s) == 44);
static_assert(offsetof(ReportPerfRecord, start_time_ms) == 48);
static_assert(offsetof(ReportPerfRecord, end_time_s) == 52);
static_assert(offsetof(ReportPerfRecord, end_time_ms) == 56);

/// Key of a row.
struct ReportPerfKey {
  uint32_t reserved;  ///< always 0
  uint32_t history_id;
};
static_assert(sizeof(ReportPerfKey) == 8);

/// Describes the key handed over beside it.
struct KeyDescriptor {
  uint32_t form;         ///< 0x00010008: key length 8 in the low half, 1 in the high half
  uint8_t reserved[12];  ///< zero
};
static_assert(sizeof(KeyDescriptor) == 16);

/// Operations that a database object is created for.
enum DatabaseOperation : uint32_t { kDatabaseInsert = 0, kDatabaseUpdate = 1, kDatabaseRead = 3 };

extern "C" {

/// Creates an object for one operation on the table and stores it in `object`. The module passes 0 for `flags`.
/// Returns 0 on success; on failure there is nothing to release.
uint32_t db_create_tarq_savro_report_perf_obj(uint32_t operation, uint32_t flags, void** object);

/// Releases an object. The result is not used.
uint32_t db_release_tarq_savro_report_perf_object(void* object);

/// Reads the row of `key` through a read object. Returns 0; non-zero when there is none or the read failed.
uint32_t db_read_obj(void* object, const KeyDescriptor* descriptor, const ReportPerfKey* key);

/// Writes the fields set on an update object into the row of `key`. Returns 0; non-zero when there is no such row.
uint32_t db_update_obj(void* object, const KeyDescriptor* descriptor, const ReportPerfKey* key);

/// Inserts the row whose fields were set on an insert object. Returns 0; non-zero when the row exists or the write
/// failed.
uint32_t db_write_obj(void* object);

/// Sets all fifteen fields from a record of `length` bytes (60), which is copied. Returns 0 on success.
uint32_t db_set_tarq_savro_report_perf_all_fields(void* object, const ReportPerfRecord* record, uint32_t length);

/// Each sets one field. Returns 0 on success.
uint32_t db_set_tarq_savro_report_perf_period_index(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_in_wux_msg_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_in_wux_msg_byte_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_in_wux_item_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_in_wux_item_byte_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_out_msg_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_out_msg_byte_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_out_item_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_out_item_byte_count(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_start_time_s(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_start_time_ms(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_end_time_s(void* object, uint32_t value);
uint32_t db_set_tarq_savro_report_perf_end_time_ms(void* object, uint32_t value);

/// Removes all rows of the named table. The module passes 1 for `flags`. Returns 0 on success.
uint32_t db_truncate_table(const char* table, uint32_t flags);

}  // extern "C"
}  // namespace tarq
