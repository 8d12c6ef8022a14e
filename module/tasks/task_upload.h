// Task upload: frames a sample and hands it to the framework once per task. Everything here runs on the worker thread.
#pragma once

#include <cstdint>

#include "export.h"
#include "platform/framework.h"
#include "tasks/task_registry.h"

namespace tarq {

/// Uploads the sample in `sample` to every task of the kind whose encoding is `codeType`, newest task first. The sample
/// is only read. Nothing happens when it is empty; a sample that cannot be framed reaches no task, which is logged.
TARQ_EXPORT void SAVRO_TARQ_TASK_UploadStatsData(uint32_t msgId, const SampleBuffer* sample, uint32_t codeType);

/// Frames `sample` into `upload`: everything but the task's identity, its flag and `reserved3`. 0, or 1 when the framed
/// sample does not fit or a JSON sample is of an unknown kind.
TARQ_EXPORT uint32_t SAVRO_TARQ_TASK_FormatStatsData(uint32_t msgId, uint32_t codeType, const SampleBuffer* sample,
                                                     SampleBuffer* upload);

/// Sets the task's identity and active-report-end flag in `upload` and hands it to the framework.
TARQ_EXPORT void SAVRO_TARQ_TASK_UploadStatsDataByTask(SampleBuffer* upload, TlmTaskInfo* task);

/// 1 when the task's sample interval has elapsed since its addition or since this last gave 1, which is then noted in
/// the task; else 0.
TARQ_EXPORT uint32_t SAVRO_TARQ_TASK_IsActiveReportEnd(TlmTaskInfo* task);

/// Hands `upload` to the framework; a refusal is logged and not tried again.
TARQ_EXPORT void SAVRO_TARQ_UploadDataToTlm(const SampleBuffer* upload);

}  // namespace tarq
