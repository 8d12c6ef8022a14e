// Packets from libpcap: of an interface, or of a file.
#pragma once

#include <pcap/pcap.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>

#include "meter/options.h"
#include "meter/packet.h"

namespace tarq::meter {

/// Bytes captured of each packet: enough for the link, VLAN, MPLS and IP headers, extension headers included.
inline constexpr int kSnapLength = 256;
/// The kernel hands over captured packets after this time at the latest.
inline constexpr int kHandOverMs = 100;

/// One captured packet. Valid until the next one is read.
struct CapturedPacket {
  std::span<const uint8_t> bytes;
  uint32_t originalLength;
  Timestamp time;
};

enum class ReadResult { kPacket, kNoneNow, kEnd, kFailed };

/// An open capture. Used by one thread.
class Capture {
 public:
  /// Starts capturing on `options.interface`. Throws `StartFailure`, with `kNotPermitted` when only the permission or
  /// the means to capture are missing.
  static Capture OpenInterface(const Options& options);
  /// Opens the file `options.pcapFile`, or standard input for "-". Throws `StartFailure`.
  static Capture OpenFile(const Options& options);

  /// Reads the next packet. `kNoneNow` only from an interface, `kEnd` only from a file; `kFailed`: see `Error`.
  ReadResult Read(CapturedPacket& packet);
  std::string Error() const { return pcap_geterr(handle_.get()); }

  /// libpcap's link type of every packet.
  int linkType() const { return linkType_; }
  /// Readable when an interface's packets are waiting; -1 for a file.
  int descriptor() const { return descriptor_; }
  /// Packets that the kernel dropped because they were not read in time; 0 for a file.
  uint64_t KernelDrops() const;

 private:
  struct Closer {
    void operator()(pcap_t* handle) const { pcap_close(handle); }
  };
  using Handle = std::unique_ptr<pcap_t, Closer>;

  Capture(Handle handle, const Options& options);

  Handle handle_;
  int linkType_;
  int descriptor_ = -1;
};

/// Names for the records' interface field, at most 63 bytes each.
class InterfaceNames {
 public:
  /// `name` is the interface's or the capture's; with `perIndex`, other indexes are looked up in the system.
  InterfaceNames(std::string name, uint32_t index, bool perIndex);

  /// Index to count a packet under whose link header gave `fromLinkHeader` (0: none).
  uint32_t IndexFor(uint32_t fromLinkHeader) const { return fromLinkHeader != 0 ? fromLinkHeader : index_; }
  /// Valid as long as this object.
  const std::string& NameOf(uint32_t index);

 private:
  const std::string name_;
  const uint32_t index_;
  const bool perIndex_;
  std::unordered_map<uint32_t, std::string> looked_;
};

/// The names that belong to the source of packets in `options`.
InterfaceNames NamesFor(const Options& options);

}  // namespace tarq::meter
