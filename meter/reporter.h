// Turns the flows of a closed period into records, packs the records into messages and hands those to the sender.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "meter/capture.h"
#include "meter/flow_table.h"
#include "meter/sender.h"
#include "meter/services.h"
#include "standin/packed_list.h"

namespace tarq::meter {

/// Records of one flow: a flow record and a flow-hop record, and for IPv4 a native IP record.
constexpr uint32_t RecordsPerFlow(const FlowKey& key) { return key.addressFamily == 0 ? 3 : 2; }

/// Records wait at most about this long for others to fill their message, where messages are packed across periods.
inline constexpr std::chrono::seconds kLongestHold{1};

/// Used by one thread.
class Reporter {
 public:
  /// Takes one message: a packed list with `records` records.
  using Emit = std::function<void(Kind kind, std::vector<uint8_t> list, uint32_t records)>;

  /// Messages take at most `messageBytes`. `names` must outlive this.
  Reporter(uint32_t periodSeconds, uint32_t messageBytes, InterfaceNames& names, Emit emit);

  /// Reports all flows of one period. Messages that are full are emitted, the last one of each kind is kept.
  void Report(uint64_t periodId, const FlowTable& flows);
  /// Emits the messages that are kept.
  void Flush();
  /// Flushes when it is time to at `now`.
  void FlushIfDue(Clock::time_point now);
  /// When it is time to flush; nothing while no message is kept.
  std::optional<Clock::time_point> FlushDue() const;

  uint64_t periods() const { return periods_; }
  uint64_t flows() const { return flows_; }  ///< added up over the periods

 private:
  template <class Entry>
  void Add(Kind kind, wire::ListPacker<Entry>& packer, const Entry& entry);
  template <class Entry>
  void EmitList(Kind kind, wire::ListPacker<Entry>& packer);

  const uint32_t periodSeconds_;
  InterfaceNames& names_;
  const Services services_;
  const Emit emit_;
  wire::ListPacker<FlowEntry> flowPacker_;
  wire::ListPacker<FlowHopEntry> flowHopPacker_;
  wire::ListPacker<NativeIpEntry> nativeIpPacker_;
  std::optional<Clock::time_point> keptSince_;
  uint64_t periods_ = 0;
  uint64_t flows_ = 0;
};

}  // namespace tarq::meter
