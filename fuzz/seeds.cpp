// Writes each target's seed corpus, made of valid input, into DIRECTORY/TARGET: fuzz_seeds DIRECTORY
#include <cstring>
#include <filesystem>
#include <fstream>

#include "standin/packed_list.h"

using namespace tarq;
using namespace std::string_literals;

template <class T>
std::string Bytes(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

void Write(const std::filesystem::path& directory, const std::string& name, const std::string& seed) {
  create_directories(directory);
  std::ofstream(directory / name, std::ios::binary) << seed;
}

template <class Entry>
void WriteKind(const std::filesystem::path& out, char kind, const std::string& name, const Entry& entry) {
  wire::ListPacker<Entry> packer(4096);
  packer.Add(entry);
  const std::vector<uint8_t> packed = packer.Take();
  const std::string list(packed.begin(), packed.end());
  Write(out / "packed_list", name, list + kind);
  Write(out / "channel_frames", name,
        Bytes(wire::FrameHeader{1, uint32_t(list.size())}) + list + "\5\7\2\x80\5\7\2\x80");
  Write(out / "record_encoders", name, Bytes(entry) + "\2\4\6\x08\x0A\x0C" + "eth0\\ dns\\ \0\0\x05"s + kind);
}

/// A native IP list whose MAC, or whose text, begins so many bytes before its end.
void WriteNearEnd(const std::filesystem::path& out, size_t before) {
  for (const size_t field : {offsetof(NativeIpEntry, clientMac), offsetof(NativeIpEntry, ifName)}) {
    const std::string tail = "eth0\0\2\4\6\x08\x0A\0"s;
    NativeIpEntry entry{};
    wire::ListHeader header{
        wire::kListMagic, wire::kListVersion, sizeof entry, kNativeIpMsgId, 1, uint32_t(tail.size()), 0};
    const uint64_t end = sizeof header + sizeof entry + tail.size();
    const uint64_t name = end - tail.size(), offset = end - before;
    std::memcpy(reinterpret_cast<char*>(&entry) + offsetof(NativeIpEntry, ifName), &name, sizeof name);
    std::memcpy(reinterpret_cast<char*>(&entry) + field, &offset, sizeof offset);
    Write(out / "packed_list", "end" + std::to_string(field) + "-" + std::to_string(before),
          Bytes(header) + Bytes(entry) + tail + '\0');
  }
}

int main(int, char** argv) {
  const std::filesystem::path out = argv[1];
  const uint8_t mac[6] = {2, 4, 6, 8, 10, 12};
  WriteKind(out, 0, "native", NativeIpEntry{.clientMac = mac, .ifName = "eth0", .appName = "dns"});
  WriteKind(out, 1, "flow", FlowEntry{.addressFamily = 1, .vpnName = "blue", .ifName = "eth0", .packetCount = ~0ull});
  WriteKind(out, 2, "hop", FlowHopEntry{.ifName = "eth0", .sdwanFlag = 1, .sdwanPeerSiteId = 1, .sdwanSrcTnpId = 2});
  for (const size_t before : {0, 1, 5, 6, 7}) WriteNearEnd(out, before);
  const std::string macs(12, '\x02'), ports = "\x01\xBB\xC0\x01\0\x10\0\0"s, end = "\x30\0\0\0\x3C"s;
  const std::string ip4 = "\x45\0\0\x1C\0\1\0\0\x40\x11\0\0\x7F\0\0\1\x7F\0\0\2"s + ports + end;
  const std::string ip6 = "\x60\0\0\0\0\x10\0\x40"s + std::string(32, '\x20') + "\x11\0\0\0\0\0\0\0"s + ports + end;
  Write(out / "packets", "tagged", macs + "\x81\0\0\1\x88\x47\0\0\x11\x40"s + ip4 + '\0');
  Write(out / "packets", "cooked", "\0\4\0\1\0\6"s + macs.substr(4) + "\x08\0"s + ip4 + '\1');
  Write(out / "packets", "cooked2", "\x86\xDD\0\0\0\0\0\1\0\1\0\6"s + macs.substr(4) + ip6 + '\2');
  Write(out / "packets", "raw", ip6 + '\3');
  Write(out / "options", "host", "--subscribe\\ flow:json\\ --duration\\ 1.5\\ --port\\ 0\\ --drain-timeout\\ 1\\ \1");
  Write(
      out / "options", "outputs",
      "--output\\ tcp:[::1]:9\\ --format\\ delimited\\ --output\\ unix:/x\\ --subscribe\\ flow:gpb:1s\\ --metrics\\ 0\\ \1");
  Write(out / "options", "meter", "--synthetic\\ 9\\ --linger\\ 0\\ --duration\\ 1\\ --channel\\ h:1\\ \2");
}
