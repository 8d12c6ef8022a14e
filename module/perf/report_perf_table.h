// The database table "tarq_savro_report_perf": one row per slot. Everything here runs on the worker thread.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/database.h"

namespace tarq {

/// Inserts the record's row, or updates it when there is one. 0, or 1 when the database refused it; both are logged.
TARQ_EXPORT uint32_t SAVRO_TARQ_AddReportPerfEntryDbData(const ReportPerfRecord* record);

/// 0 when there is a row with the key; 1 when there is none or it cannot be told.
TARQ_EXPORT uint32_t SAVRO_TARQ_CheckReportPerfEntryDataExist(const KeyDescriptor* descriptor,
                                                              const ReportPerfKey* key);

/// Inserts a row of all fifteen fields. 0, or 1 and a log line.
TARQ_EXPORT uint32_t SAVRO_TARQ_WriteReportPerfEntryDb(const ReportPerfRecord* record);

/// Updates the thirteen fields beside the key. 0, or 1 and a log line.
TARQ_EXPORT uint32_t SAVRO_TARQ_UpdateReportPerfEntryDb(const KeyDescriptor* descriptor, const ReportPerfKey* key,
                                                        const ReportPerfRecord* record);

/// Removes every row; a failure is logged.
TARQ_EXPORT void SAVRO_TARQ_TruncateReportPerfEntryDbData();

}  // namespace tarq
