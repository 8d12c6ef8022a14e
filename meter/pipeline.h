// The way of every packet, whatever its source: packet facts, flows per period, records, messages, host.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "meter/capture.h"
#include "meter/options.h"
#include "meter/period.h"
#include "meter/reporter.h"
#include "meter/sender.h"
#include "meter/stop.h"

namespace tarq::meter {

struct PacketCounters {
  uint64_t seen = 0;
  uint64_t metered = 0;
  uint64_t meteredBytes = 0;  ///< IP bytes
  uint64_t notMetered = 0;    ///< of flows beyond the limit
  uint64_t notIp = 0;
  uint64_t malformed = 0;
  uint64_t unsupported = 0;
  uint64_t kernelDrops = 0;  ///< by the kernel, before the meter saw them

  uint64_t skipped() const { return notIp + malformed + unsupported; }
};

/// Owns the stages behind the source of packets. Used by one thread.
class Pipeline {
 public:
  /// Throws `StartFailure` when the host's name does not resolve. A live pipeline never waits for the host; any other
  /// waits for room in the backlog, as long as the host is there.
  Pipeline(const Options& options, const StopRequest& stop);

  /// Counts one packet of libpcap's link type `dlt`.
  void Count(int dlt, const CapturedPacket& packet);
  /// Counts one packet that is known already.
  void Count(const PacketFacts& facts, Timestamp time);

  /// Lets the host take what it can, without waiting.
  void ServeHost();

  /// Waits until `remaining` returns 0 or less, asked again whenever something happened. False when stopped first.
  bool WaitUntilOver(const std::function<std::chrono::milliseconds()>& remaining);

  /// Closes every period and hands all records over to the sender.
  void End();

  PeriodMeter& periods() { return periods_; }
  Sender& sender() { return sender_; }
  PacketCounters& packets() { return packets_; }
  const StopRequest& stop() const { return stop_; }
  const Reporter& reporter() const { return reporter_; }

 private:
  void Report(uint64_t periodId, const FlowTable& flows);
  void Emit(Kind kind, std::vector<uint8_t> list, uint32_t records);

  const StopRequest& stop_;
  const bool isLive_;
  const bool packsAcrossPeriods_;  // A message then waits for more records when its period has been reported.
  Sender sender_;
  InterfaceNames names_;
  Reporter reporter_;
  PeriodMeter periods_;
  PacketCounters packets_;
};

/// Each takes packets from one kind of source until it ends or a stop is requested, and ends the pipeline.
/// False when reading failed; a log line says why.
bool MeterInterface(const Options& options, Capture& capture, Pipeline& pipeline);
bool MeterFile(const Options& options, Capture capture, Pipeline& pipeline);
bool MeterSynthetic(const Options& options, Pipeline& pipeline);

}  // namespace tarq::meter
