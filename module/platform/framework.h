// The telemetry framework: its table of functions and the records exchanged through it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarq {

/// Encodings of a task, a sample buffer and an upload.
enum CodeType : uint32_t { kCodeTypeGpb = 0, kCodeTypeJson = 1 };

/// Severities of a log line.
enum LogLevel : uint32_t { kLogNote = 0, kLogMilestone = 1, kLogFailure = 2 };

/// What a collector subscribed to, as the framework hands it to an add callback. Valid only during that call.
struct TaskDescription {
  uint32_t codeType;          ///< wanted encoding, a `CodeType`
  uint32_t sampleIntervalMs;  ///< sample interval in milliseconds
  uint8_t opaque[3456];       ///< the framework's own; stored, never interpreted
};
static_assert(sizeof(TaskDescription) == 3464);
static_assert(offsetof(TaskDescription, codeType) == 0);
static_assert(offsetof(TaskDescription, sampleIntervalMs) == 4);
static_assert(offsetof(TaskDescription, opaque) == 8);

/// Adds a telemetry task. Called by the framework on a thread of its own. Returns 0 when accepted, 1 when out of
/// memory.
using AddTaskCallback = uint32_t (*)(uint32_t tlmId, uint32_t taskId, const TaskDescription* description);
/// Deletes a telemetry task. Threads and results as for adding.
using DelTaskCallback = uint32_t (*)(uint32_t tlmId, uint32_t taskId);
/// Answers a query for a sample path. The module's answers 0 to whatever it is given.
using QueryCallback = uint32_t (*)();

/// Announces one sample path. Valid only during the registering call.
struct SamplePathRegistration {
  uint8_t reserved0[32];  ///< zero
  uint32_t word32;        ///< 10000
  uint8_t bytes36[4];     ///< 0, 0, 1, 0
  QueryCallback query;
  DelTaskCallback delTask;
  uint32_t word56;        ///< 1
  uint8_t reserved60[4];  ///< zero
  AddTaskCallback addTask;
};
static_assert(sizeof(SamplePathRegistration) == 72);
static_assert(offsetof(SamplePathRegistration, reserved0) == 0);
static_assert(offsetof(SamplePathRegistration, word32) == 32);
static_assert(offsetof(SamplePathRegistration, bytes36) == 36);
static_assert(offsetof(SamplePathRegistration, query) == 40);
static_assert(offsetof(SamplePathRegistration, delTask) == 48);
static_assert(offsetof(SamplePathRegistration, word56) == 56);
static_assert(offsetof(SamplePathRegistration, reserved60) == 60);
static_assert(offsetof(SamplePathRegistration, addTask) == 64);

/// Bytes of encoded records that a sample buffer or an upload record holds at most.
inline constexpr uint32_t kSampleDataCapacity = 30720;

/// A header and encoded records back to back. The module gathers records in such buffers and uploads copies of the same
/// layout. Integers in host byte order.
struct SampleBuffer {
  uint32_t tlmId;              ///< receiving task; 0 while gathering
  uint32_t taskId;             ///< receiving task; 0 while gathering
  uint8_t reserved1[8];        ///< zero
  uint64_t collectTimestamp;   ///< start of the collection cycle, milliseconds since the Unix epoch
  uint8_t reserved2[8];        ///< zero
  uint8_t reserved3[4];        ///< not written in an upload: holds what the fresh buffer held
  uint32_t isActiveReportEnd;  ///< 1 when the receiving task's sample interval has elapsed; 0 while gathering
  uint32_t recordCount;        ///< encoded records in `data`
  uint32_t dataLen;            ///< bytes of `data` in use; no terminator is counted
  uint8_t data[kSampleDataCapacity];
};
static_assert(sizeof(SampleBuffer) == 30768);
static_assert(offsetof(SampleBuffer, tlmId) == 0);
static_assert(offsetof(SampleBuffer, taskId) == 4);
static_assert(offsetof(SampleBuffer, reserved1) == 8);
static_assert(offsetof(SampleBuffer, collectTimestamp) == 16);
static_assert(offsetof(SampleBuffer, reserved2) == 24);
static_assert(offsetof(SampleBuffer, reserved3) == 32);
static_assert(offsetof(SampleBuffer, isActiveReportEnd) == 36);
static_assert(offsetof(SampleBuffer, recordCount) == 40);
static_assert(offsetof(SampleBuffer, dataLen) == 44);
static_assert(offsetof(SampleBuffer, data) == 48);

/// The framework's table. Slots are counted from 0; the module reads the named ones, tests each for null before use and
/// touches no other. All named slots must accept concurrent calls. `moduleId` is what the module was started with.
struct FrameworkTable {
  void* slots0to2[3];
  /// Registers a sample path. `path` stays valid while the module is loaded, the registration only during the call.
  /// Returns 0 on success. The callbacks may be called from any thread from then on.
  uint32_t (*SampleXpathRegister)(uint32_t moduleId, const char* path, const SamplePathRegistration* registration);
  /// Takes one sample for one task. The record is the module's; the framework takes what it needs during the call.
  /// Called on the worker thread, which waits for it. Returns 0 on success; nothing is uploaded twice.
  uint32_t (*SampleDataUpload)(uint32_t moduleId, const SampleBuffer* sample);
  void* slot5;
  /// Takes one finished log line, valid only during the call. The result is ignored.
  uint32_t (*LogWrite)(uint32_t moduleId, uint32_t level, const char* text);
  /// Returns a buffer of `size` bytes, aligned for any type and not cleared, or null.
  void* (*BufAlloc)(uint32_t moduleId, uint32_t size);
  /// Takes back a buffer from `BufAlloc`. Never called with null. The result is ignored.
  uint32_t (*BufFree)(uint32_t moduleId, void* buffer);
};
static_assert(offsetof(FrameworkTable, SampleXpathRegister) == 3 * sizeof(void*));
static_assert(offsetof(FrameworkTable, SampleDataUpload) == 4 * sizeof(void*));
static_assert(offsetof(FrameworkTable, LogWrite) == 6 * sizeof(void*));
static_assert(offsetof(FrameworkTable, BufAlloc) == 7 * sizeof(void*));
static_assert(offsetof(FrameworkTable, BufFree) == 8 * sizeof(void*));

extern "C" {

/// Looks up a component's table in the registry. The selectors 1000 and 1000 name the telemetry framework's.
/// Returns 0 and stores the table, which stays the framework's and valid for good, in `table`; non-zero on failure.
uint32_t COMP_GetVTable(uint32_t component, uint32_t interface, FrameworkTable** table);

}  // extern "C"
}  // namespace tarq
