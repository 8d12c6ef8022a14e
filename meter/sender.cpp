#include "meter/sender.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace tarq::meter {
namespace {

using std::chrono::milliseconds;

struct KindTraits {
  const char* name;
  uint32_t msgId;
};
constexpr std::array<KindTraits, kKinds.size()> kTraits{{
    {"flow", kFlowMsgId},
    {"flow-hop", kFlowHopMsgId},
    {"native-ip", kNativeIpMsgId},
}};
const KindTraits& TraitsOf(Kind kind) { return kTraits[static_cast<size_t>(kind)]; }

constexpr milliseconds kLongestPoll{60'000};

}  // namespace

const char* NameOf(Kind kind) { return TraitsOf(kind).name; }

std::vector<SocketAddress> Resolve(const Endpoint& endpoint) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int error = getaddrinfo(endpoint.host.c_str(), std::to_string(endpoint.port).c_str(), &hints, &list);
  if (error != 0) {
    throw StartFailure(kBadUsage,
                       "cannot resolve the host of --channel '" + endpoint.host + "': " + gai_strerror(error));
  }
  std::vector<SocketAddress> addresses;
  for (const addrinfo* info = list; info != nullptr; info = info->ai_next) {
    SocketAddress& address = addresses.emplace_back();
    std::memcpy(&address.storage, info->ai_addr, info->ai_addrlen);
    address.length = info->ai_addrlen;
  }
  freeaddrinfo(list);
  return addresses;
}

Sender::Sender(const Endpoint& endpoint, size_t backlogBytes) {
  const std::vector<SocketAddress> addresses = Resolve(endpoint);
  const std::string target = endpoint.host + ":" + std::to_string(endpoint.port);
  for (const Kind kind : kKinds) {
    connections_[static_cast<size_t>(kind)] =
        std::make_unique<Connection>(target + " " + NameOf(kind), addresses, backlogBytes / kKinds.size());
  }
}

void Sender::Queue(Kind kind, std::vector<uint8_t> list, uint32_t records) {
  const wire::FrameHeader header{TraitsOf(kind).msgId, static_cast<uint32_t>(list.size())};
  At(kind).Queue({header, std::move(list), records});
}

void Sender::WaitForRoom(Kind kind, size_t bytes, int stopDescriptor) {
  const Connection& connection = At(kind);
  pollfd stop{stopDescriptor, POLLIN, 0};
  while (!connection.HasRoom(bytes) && !connection.away() && stop.revents == 0) {
    Wait(kLongestPoll, {&stop, 1});
  }
}

milliseconds Sender::UntilWake(milliseconds timeout) const {
  const auto now = Clock::now();
  for (const auto& connection : connections_) {
    const auto wakeAt = connection->WakeAt();
    if (wakeAt) timeout = std::min(timeout, std::chrono::ceil<milliseconds>(*wakeAt - now));
  }
  return std::max(timeout, milliseconds{0});
}

void Sender::Wait(milliseconds timeout, std::span<pollfd> others) {
  descriptors_.assign(others.begin(), others.end());
  for (const auto& connection : connections_) descriptors_.push_back(connection->Interest());
  const auto pause = std::min(UntilWake(timeout), kLongestPoll);
  if (poll(descriptors_.data(), descriptors_.size(), static_cast<int>(pause.count())) < 0) {
    for (pollfd& one : descriptors_) one.revents = 0;
  }
  std::copy_n(descriptors_.begin(), others.size(), others.begin());
  const auto now = Clock::now();
  for (size_t i = 0; i < connections_.size(); ++i) {
    connections_[i]->Handle(descriptors_[others.size() + i].revents, now);
  }
}

template <class Condition>
void Sender::WaitWhile(Condition condition, milliseconds linger) {
  const auto end = Clock::now() + linger;
  while (std::ranges::any_of(connections_, condition) && Clock::now() < end) {
    Wait(std::chrono::ceil<milliseconds>(end - Clock::now()), {});
  }
}

void Sender::Finish(milliseconds linger) {
  for (const auto& connection : connections_) connection->BeginFinish();
  WaitWhile([](const auto& connection) { return connection->hasUnsent(); }, linger);
  for (const auto& connection : connections_) {
    if (connection->hasUnsent()) connection->Abandon();
  }
  WaitWhile([](const auto& connection) { return connection->isFinishing(); }, linger);
  for (const auto& connection : connections_) connection->Abandon();
}

}  // namespace tarq::meter
