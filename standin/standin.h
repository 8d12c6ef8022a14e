// What a host does with the stand-in platform beyond the seam: set it up before the module starts, act as the
// framework's management side, watch it, and wind it down. Every function may be called from any thread unless it says
// otherwise.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/database.h"
#include "platform/framework.h"

namespace tarq::standin {

// ---- Framework: sample paths, samples, log lines, buffers ------------------------------------------------

/// One uploaded sample: a copy, owned by whoever holds it.
struct Sample {
  uint32_t tlmId;
  uint32_t taskId;
  uint64_t collectTimestamp;  ///< milliseconds since the Unix epoch
  bool isActiveReportEnd;
  uint32_t recordCount;
  std::string data;  ///< the framed sample, bytes as uploaded
};

/// Takes samples, one at a time, on the framework's delivery thread: never on the module's worker.
using SampleHandler = std::function<void(Sample&&)>;
/// Takes the module's and the stand-in's log lines, on whichever thread wrote them.
using LogHandler = std::function<void(uint32_t level, std::string_view text)>;

/// Sets the handlers; to be called before the module starts. Without them samples are dropped and lines go nowhere.
void SetSampleHandler(SampleHandler handler);
void SetLogHandler(LogHandler handler);

/// The sample paths that the module registered, in order of registration.
std::vector<std::string> SamplePaths();

/// Adds or deletes a task through the callbacks registered for `path`. Returns the callback's result, or 1 when the
/// path is not registered.
uint32_t AddTask(std::string_view path, uint32_t tlmId, uint32_t taskId, const TaskDescription& description);
uint32_t DeleteTask(std::string_view path, uint32_t tlmId, uint32_t taskId);

/// Waits until every accepted sample has passed through the sample handler. False when `timeout` ran out first.
bool WaitDelivered(std::chrono::milliseconds timeout);

/// Ends the delivery thread; what is still waiting is dropped and counted. Called once, after the module has stopped.
void StopDelivery();

struct SampleCount {
  uint64_t samples = 0;
  uint64_t records = 0;

  void Add(uint32_t recordCount) {
    ++samples;
    records += recordCount;
  }
  void Add(const SampleCount& other) {
    samples += other.samples;
    records += other.records;
  }
  void Remove(uint32_t recordCount) {
    --samples;
    records -= recordCount;
  }
  bool operator==(const SampleCount&) const = default;
};

/// What became of uploads. Every one is in exactly one of these.
struct UploadCounters {
  SampleCount refused;    ///< `kMaxPendingBytes` wait already, or the upload is malformed
  SampleCount delivered;  ///< passed through the sample handler
  SampleCount dropped;    ///< no handler was set, it threw, or still waiting at `StopDelivery`
  SampleCount waiting;    ///< accepted, not yet through
};

struct FrameworkCounters {
  SampleCount uploaded;                       ///< uploads that the module made, counted as they come
  std::map<uint32_t, UploadCounters> byTask;  ///< task identifier -> what became of its uploads
  uint64_t failureLines = 0;                  ///< log lines of level 2, the stand-in's own included
  std::map<uint32_t, uint64_t> buffersInUse;  ///< buffer size in bytes -> buffers not yet released
};
FrameworkCounters GetFrameworkCounters();

/// Bytes of the buffers that the module has not released yet. Any thread.
uint64_t BufferBytesInUse();

/// Bytes of samples that wait for delivery at most; an upload beyond that is refused.
inline constexpr size_t kMaxPendingBytes = 64u << 20;

// ---- Event loops, queues, tasks --------------------------------------------------------------------------

/// Waits until every live event loop has finished the callback it is in, if any. False when `timeout` ran out first.
bool PassLoops(std::chrono::milliseconds timeout);

struct QueueStatus {
  std::string name;
  uint32_t depth = 0;  ///< elements now waiting
  uint32_t capacity = 0;
  uint64_t written = 0;     ///< elements accepted so far
  uint64_t refused = 0;     ///< elements refused because the queue was full
  uint64_t read = 0;        ///< elements taken so far
  uint64_t unread = 0;      ///< of a queue of messages: taken, and the next read came without an unpacking
  uint64_t emptyReads = 0;  ///< reads that found nothing
  uint64_t ownWrites = 0;   ///< elements accepted from within the queue's own read callback
  uint64_t stopEvents = 0;  ///< flow-control events 1 raised
  uint64_t callbacks = 0;   ///< read callbacks that have returned
  std::chrono::nanoseconds callbackTime{};     ///< what they took together
  std::chrono::nanoseconds longestCallback{};  ///< and the longest of them
};
/// The live queues and those already destroyed, in order of creation; a destroyed queue keeps its last figures.
std::vector<QueueStatus> Queues();

/// Waits for every task started through the task API to end and joins it. False when `timeout` ran out first.
bool JoinTasks(std::chrono::milliseconds timeout);

// ---- Channel ---------------------------------------------------------------------------------------------

/// Sets the port of the next channel server, in place of the module's; 0 takes any free port. Without this call the
/// environment variable TARQ_CHANNEL_PORT does the same.
void SetChannelPort(uint16_t port);

/// The port that the running channel server listens on; 0 when none runs.
uint16_t ChannelPort();

/// Takes no more messages: what had arrived by now is still handed over, then the connections and the listening socket
/// are closed. The server itself stays until the module stops it. False when `timeout` ran out first.
bool StopChannelIntake(std::chrono::milliseconds timeout);

/// What became of messages, as far as it crosses the seam. Every one is in exactly one of these.
struct MessageOutcomes {
  uint64_t queued = 0;    ///< written to a queue
  uint64_t refused = 0;   ///< offered to a queue, which was full
  uint64_t failed = 0;    ///< neither, and a failure was logged: an empty message, or no memory for it
  uint64_t unwanted = 0;  ///< passed over without a word: nobody subscribed to its kind

  uint64_t total() const { return queued + refused + failed + unwanted; }
  void Add(const MessageOutcomes& other) {
    queued += other.queued;
    refused += other.refused;
    failed += other.failed;
    unwanted += other.unwanted;
  }
};

struct ChannelCounters {
  uint64_t connectionsAccepted = 0;
  uint64_t connectionsRefused = 0;           ///< from another machine
  uint64_t connectionsFaulted = 0;           ///< closed for breaking the framing or a time limit
  uint64_t messages = 0;                     ///< complete frames received
  uint64_t bytes = 0;                        ///< their payload bytes
  std::map<uint32_t, MessageOutcomes> byId;  ///< of the first `kMaxCountedIds` identifiers seen
  MessageOutcomes otherIds;                  ///< of all further ones
};
ChannelCounters GetChannelCounters();

/// Limits of the channel server, beside `wire::kMaxMessageLength`.
inline constexpr uint32_t kMaxConnections = 64;
inline constexpr std::chrono::seconds kHalfFrameTimeout{10};  ///< from a frame's first byte to its last
inline constexpr size_t kMaxCountedIds = 64;
/// Nothing is read while the module's buffers take more bytes; read on when they take half of it, looked at each
/// second.
inline constexpr uint64_t kMaxBufferBytes = 256u << 20;

// ---- Messages --------------------------------------------------------------------------------------------

struct MessageCounters {
  uint64_t unpacked = 0;  ///< messages
  uint64_t refused = 0;   ///< messages that broke the packed format; each has a log line
  uint64_t records = 0;   ///< entry records of the unpacked messages
};
/// Counters of one kind; all zero for an unknown `msgId`.
MessageCounters GetMessageCounters(uint32_t msgId);

/// The kind whose list the calling thread has unpacked and not freed yet, by its message identifier; 0 for none.
uint32_t ListInHand();

// ---- Database --------------------------------------------------------------------------------------------

/// Opens the database, to be called before the module starts: a SQLite file, created when missing, or memory when
/// `file` is empty. Returns an empty text, or what went wrong. Without this call the database is in memory.
std::string OpenDatabase(const std::string& file);

/// Closes the database once nothing uses it any more.
void CloseDatabase();

/// The rows of the period table, in order of their key.
std::vector<ReportPerfRecord> ReadPeriodTable();

struct DatabaseCounters {
  uint64_t inserts = 0, updates = 0, truncates = 0;  ///< that succeeded
  uint64_t failures = 0;                             ///< operations that SQLite refused; a missing row is no failure
  /// Records in and out that the rows handed over account for, whether SQLite took them or not. A row counts from its
  /// slot's last one on, from 0 when the period began anew.
  uint64_t recordsIn = 0, recordsOut = 0;
  uint64_t recordsForgotten = 0;  ///< unpacked records whose period was displaced before a row told of them
  uint64_t recordsInNoRow = 0;    ///< unpacked records that no row tells of yet
};
DatabaseCounters GetDatabaseCounters();

}  // namespace tarq::standin
