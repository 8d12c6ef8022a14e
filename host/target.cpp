#include "host/target.h"

#include <fmt/format.h>
#include <sys/un.h>

#include <charconv>
#include <stdexcept>
#include <string_view>

namespace tarq::host {
namespace {

constexpr std::string_view kTcp = "tcp:";
constexpr std::string_view kUnix = "unix:";
constexpr size_t kMaxSocketPath = sizeof(sockaddr_un::sun_path) - 1;

[[noreturn]] void Refuse(const std::string& text, std::string_view reason) {
  throw std::invalid_argument(fmt::format("output \"{}\": {}", text, reason));
}

bool IsPort(std::string_view text) {
  unsigned port = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc{} && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

Target TcpTarget(const std::string& text) {
  std::string rest = text.substr(kTcp.size());
  size_t colon = rest.rfind(':');
  if (colon == rest.npos || !IsPort(rest.substr(colon + 1)))
    Refuse(text, "write tcp:HOST:PORT with a port from 1 to 65535");
  std::string host = rest.substr(0, colon);
  bool bracketed = host.starts_with('[') && host.ends_with(']');
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (host.empty()) Refuse(text, "there is no host in it; write tcp:HOST:PORT");
  if (!bracketed && host.find(':') != host.npos) Refuse(text, "an IPv6 address goes in brackets: tcp:[::1]:9000");
  return {Target::Kind::kTcp, text, host, rest.substr(colon + 1)};
}

Target UnixTarget(const std::string& text) {
  std::string path = text.substr(kUnix.size());
  if (path.empty()) Refuse(text, "there is no path in it; write unix:PATH");
  if (path.size() > kMaxSocketPath)
    Refuse(text, fmt::format("the path of a socket has at most {} bytes", kMaxSocketPath));
  return {Target::Kind::kUnix, text, path, ""};
}

}  // namespace

Target ParseTarget(const std::string& text) {
  if (text.empty()) Refuse(text, "an empty name; leave the option out");
  if (text == "-") return {};
  if (text.starts_with(kTcp)) return TcpTarget(text);
  if (text.starts_with(kUnix)) return UnixTarget(text);
  return {Target::Kind::kDirectory, text, text, ""};
}

}  // namespace tarq::host
