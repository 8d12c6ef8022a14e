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

/// Bytes captured of each packet. They hold the longest link header (20 bytes), all 16 tags and labels (64), and then
/// an IPv4 header with its options, or an IPv6 header with extension headers of 128 bytes, and the ports behind it.
/// Ports beyond the cut count as 0.
inline constexpr int kSnapLength = 256;
/// The kernel hands over captured packets after this time at the latest.
inline constexpr int kHandOverMs = 100;

/// One captured packet. Valid until the next one is read.
struct CapturedPacket {
  std::span<const uint8_t> bytes;
  uint32_t originalLength;
  std::optional<Timestamp> time;  ///< seconds below 2^32; nothing when a damaged file gives what is no time
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

/// Interfaces whose names are remembered; beyond them records carry the name of the source.
inline constexpr size_t kMaxInterfaceNames = 4096;

/// Names for the records' interface field, at most 63 bytes each.
class InterfaceNames {
 public:
  /// `name` is the interface's or the capture's; with `perIndex`, other indexes are looked up in the system.
  InterfaceNames(std::string name, uint32_t index, bool perIndex);

  /// Index to count a packet under whose link header gave `fromLinkHeader` (0: none).
  /// The first call after `Renew` looks up the index's name, so that an interface may be gone when it is reported.
  uint32_t IndexFor(uint32_t fromLinkHeader);
  /// The name under which `IndexFor` found it, else the source's. Valid until the next call of `IndexFor` or `Renew`.
  const std::string& NameOf(uint32_t index) const;
  /// A new period begins: names are looked up again. An interface that has gone keeps its name.
  void Renew();

 private:
  const std::string name_;
  const uint32_t index_;
  const bool perIndex_;
  struct Found {
    std::string name;
    bool isStale;
  };
  std::unordered_map<uint32_t, Found> found_;
};

/// The names that belong to the source of packets in `options`.
InterfaceNames NamesFor(const Options& options);

}  // namespace tarq::meter
