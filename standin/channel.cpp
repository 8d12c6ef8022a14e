#include "platform/channel.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "standin/channel_counters.h"
#include "standin/channel_server.h"
#include "standin/log.h"
#include "standin/registry.h"
#include "standin/standin.h"

namespace tarq::standin {
namespace {

constexpr char kPortVariable[] = "TARQ_CHANNEL_PORT";

struct PortSetting {
  std::mutex mutex;
  std::optional<uint16_t> port;
};

PortSetting& ThePortSetting() {
  static auto* const setting = new PortSetting;
  return *setting;
}

std::optional<uint16_t> ParsePort(std::string_view text) {
  uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(port) : std::nullopt;
}

/// The port to listen on: the host's, else the environment's, else the configuration's. None when the environment's is
/// no port, which has been logged.
std::optional<uint16_t> PortFor(const ChannelConfig& config) {
  {
    std::lock_guard lock(ThePortSetting().mutex);
    if (ThePortSetting().port) return ThePortSetting().port;
  }
  const char* const text = std::getenv(kPortVariable);
  if (text == nullptr) return config.local.port;
  const auto port = ParsePort(text);
  if (!port) Log(kLogFailure, "[channel] %s is \"%s\": expected a port from 0 to 65535", kPortVariable, text);
  return port;
}

}  // namespace

void SetChannelPort(uint16_t port) {
  std::lock_guard lock(ThePortSetting().mutex);
  ThePortSetting().port = port;
}

uint16_t ChannelPort() {
  uint16_t port = 0;
  for (const auto& server : Objects<ChannelServer>().All()) {
    if (server->port() != 0) port = server->port();
  }
  return port;
}

bool StopChannelIntake(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const auto servers = Objects<ChannelServer>().All();
  for (const auto& server : servers) server->StopIntake();
  return std::all_of(servers.begin(), servers.end(), [&](const auto& one) { return one->WaitStopped(deadline); });
}

ChannelCounters GetChannelCounters() { return Totals().Get(); }

}  // namespace tarq::standin

namespace tarq {

using standin::ChannelServer;
using standin::Objects;

uint32_t WUX_CHAN_UCServer(const char* name, uint32_t /*flags*/, const ChannelConfig* config, uint64_t* handle) {
  if (name == nullptr || config == nullptr || config->onReceive == nullptr || handle == nullptr) return EINVAL;
  auto loop = Objects<standin::EventLoop>().Find(config->epollId);
  const auto port = standin::PortFor(*config);
  if (loop == nullptr || !port) return EINVAL;
  const auto server = std::make_shared<ChannelServer>(*config, std::move(loop));
  if (const uint32_t error = server->Start(*port); error != 0) return error;
  *handle = Objects<ChannelServer>().Add(server);
  standin::Log(kLogMilestone, "[channel] %s listens on port %u", name, server->port());
  return 0;
}

uint32_t WUX_CHAN_UCServerDestory(uint64_t handle) {
  const auto server = Objects<ChannelServer>().Take(handle);
  if (server == nullptr) return 1;
  server->Stop();
  return 0;
}

}  // namespace tarq
