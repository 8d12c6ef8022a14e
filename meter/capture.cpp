#include "meter/capture.h"

#include <net/if.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

namespace tarq::meter {
namespace {

constexpr size_t kMaxNameLength = 63;
constexpr size_t kFileBuffer = 1 << 20;

[[noreturn]] void RefuseInterface(const std::string& name, int status, pcap_t* handle) {
  const std::string detail = pcap_geterr(handle);
  const std::string text = "cannot capture on '" + name + "': " + (detail.empty() ? pcap_statustostr(status) : detail);
  switch (status) {
    case PCAP_ERROR_NO_SUCH_DEVICE:
      throw StartFailure(kBadUsage, "no interface '" + name + "' here; `ip link` lists them");
    case PCAP_ERROR_IFACE_NOT_UP:
      throw StartFailure(kBadUsage, text + "; `ip link set " + name + " up` starts it");
    case PCAP_ERROR_PERM_DENIED:
    case PCAP_ERROR_PROMISC_PERM_DENIED:
      throw StartFailure(kNotPermitted, text +
                                            "; capturing needs root or the capability CAP_NET_RAW "
                                            "(setcap cap_net_raw+ep on the program)");
    default:  // Also what a machine without packet sockets answers.
      throw StartFailure(kNotPermitted, text + "; --synthetic does without capturing");
  }
}

void SetFilter(pcap_t* handle, const std::string& expression) {
  if (expression.empty()) return;
  bpf_program program;
  if (pcap_compile(handle, &program, expression.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
    throw StartFailure(kBadUsage, "--filter '" + expression + "': " + pcap_geterr(handle));
  }
  const int status = pcap_setfilter(handle, &program);
  pcap_freecode(&program);
  if (status != 0) throw StartFailure(kBadUsage, "--filter '" + expression + "': " + pcap_geterr(handle));
}

/// With nanosecond precision the field for microseconds holds nanoseconds.
std::optional<Timestamp> TimeOf(const timeval& time) {
  constexpr long kNanosecondsPerSecond = 1'000'000'000;
  // The file's seconds have no sign, but libpcap reads them as if they had: those from 2038 on are negative here.
  const bool isIn32Bits = time.tv_sec >= INT32_MIN && time.tv_sec <= UINT32_MAX;
  if (!isIn32Bits || time.tv_usec < 0 || time.tv_usec >= kNanosecondsPerSecond) return std::nullopt;
  return Timestamp{static_cast<uint32_t>(time.tv_sec), static_cast<uint32_t>(time.tv_usec)};
}

std::string QuotedFile(const std::string& name) { return "cannot open capture '" + name + "': "; }

}  // namespace

Capture::Capture(Handle handle, const Options& options)
    : handle_(std::move(handle)), linkType_(pcap_datalink(handle_.get())) {
  if (!IsSupportedLinkType(linkType_)) {
    const char* name = pcap_datalink_val_to_description_or_dlt(linkType_);
    const std::string& source = options.pcapFile.empty() ? options.interface : options.pcapFile;
    throw StartFailure(kBadUsage, "'" + source + "' has link type " + name +
                                      "; Ethernet, Linux cooked, raw IP and BSD loopback can be read");
  }
  SetFilter(handle_.get(), options.filter);
}

Capture Capture::OpenInterface(const Options& options) {
  char error[PCAP_ERRBUF_SIZE] = "";
  Handle handle(pcap_create(options.interface.c_str(), error));
  if (!handle) throw StartFailure(kNotPermitted, "cannot capture on '" + options.interface + "': " + error);
  pcap_set_snaplen(handle.get(), kSnapLength);
  pcap_set_promisc(handle.get(), options.promiscuous);
  pcap_set_timeout(handle.get(), kHandOverMs);
  pcap_set_buffer_size(handle.get(), static_cast<int>(options.bufferMib) << 20);
  pcap_set_tstamp_precision(handle.get(), PCAP_TSTAMP_PRECISION_NANO);
  const int status = pcap_activate(handle.get());
  if (status < 0) RefuseInterface(options.interface, status, handle.get());
  // On all interfaces at once, this header names each packet's interface; single interfaces refuse it and keep theirs.
  if (options.interface == "any") pcap_set_datalink(handle.get(), DLT_LINUX_SLL2);
  pcap_setnonblock(handle.get(), 1, error);
  Capture capture(std::move(handle), options);
  capture.descriptor_ = pcap_get_selectable_fd(capture.handle_.get());
  return capture;
}

Capture Capture::OpenFile(const Options& options) {
  std::FILE* file = options.pcapFile == "-" ? stdin : std::fopen(options.pcapFile.c_str(), "rb");
  if (file == nullptr) throw StartFailure(kBadUsage, QuotedFile(options.pcapFile) + std::strerror(errno));
  std::setvbuf(file, nullptr, _IOFBF, kFileBuffer);
  char error[PCAP_ERRBUF_SIZE] = "";
  Handle handle(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, error));
  if (!handle) {
    if (file != stdin) std::fclose(file);
    throw StartFailure(kBadUsage, QuotedFile(options.pcapFile) + error);
  }
  return Capture(std::move(handle), options);
}

ReadResult Capture::Read(CapturedPacket& packet) {
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  switch (pcap_next_ex(handle_.get(), &header, &bytes)) {
    case 1:
      packet.bytes = {bytes, header->caplen};
      packet.originalLength = header->len;
      packet.time = TimeOf(header->ts);
      return ReadResult::kPacket;
    case 0:
      return ReadResult::kNoneNow;
    case PCAP_ERROR_BREAK:
      return ReadResult::kEnd;
    default:
      return ReadResult::kFailed;
  }
}

uint64_t Capture::KernelDrops() const {
  pcap_stat statistics{};
  return descriptor_ >= 0 && pcap_stats(handle_.get(), &statistics) == 0 ? statistics.ps_drop : 0;
}

InterfaceNames::InterfaceNames(std::string name, uint32_t index, bool perIndex)
    : name_(name.substr(0, kMaxNameLength)), index_(index), perIndex_(perIndex) {}

uint32_t InterfaceNames::IndexFor(uint32_t fromLinkHeader) {
  if (fromLinkHeader == 0) return index_;
  if (!perIndex_) return fromLinkHeader;
  auto entry = found_.find(fromLinkHeader);
  if (entry == found_.end() && found_.size() < kMaxInterfaceNames) {
    entry = found_.try_emplace(fromLinkHeader, Found{name_, true}).first;
  }
  if (entry != found_.end() && entry->second.isStale) {
    char name[IF_NAMESIZE];
    if (if_indextoname(fromLinkHeader, name) != nullptr) entry->second.name = name;
    entry->second.isStale = false;
  }
  return fromLinkHeader;
}

const std::string& InterfaceNames::NameOf(uint32_t index) const {
  const auto entry = found_.find(index);
  return entry == found_.end() ? name_ : entry->second.name;
}

void InterfaceNames::Renew() {
  if (found_.size() == kMaxInterfaceNames) found_.clear();
  for (auto& [index, found] : found_) found.isStale = true;
}

InterfaceNames NamesFor(const Options& options) {
  if (!options.interface.empty()) {
    return {options.interface, if_nametoindex(options.interface.c_str()), options.interface == "any"};
  }
  if (!options.pcapFile.empty()) return {std::filesystem::path(options.pcapFile).filename().string(), 0, false};
  return {"synthetic", 0, false};
}

}  // namespace tarq::meter
