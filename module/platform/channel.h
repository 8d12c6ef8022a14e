// The local channel over which the data plane sends statistics messages.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarq {

/// One received message. Valid, with its payload, only during the receive callback.
struct MessageDescriptor {
  const void* payload;  ///< a packed statistics list; null when `msgLen` is 0
  uint32_t msgId;       ///< statistics kind
  uint32_t msgLen;      ///< payload length in bytes
};
static_assert(sizeof(MessageDescriptor) == 16);
static_assert(offsetof(MessageDescriptor, payload) == 0);
static_assert(offsetof(MessageDescriptor, msgId) == 8);
static_assert(offsetof(MessageDescriptor, msgLen) == 12);

/// Receives a batch of `count` messages on the channel's event loop. The channel library ignores the result.
using ReceiveCallback = uint32_t (*)(void* context, const MessageDescriptor* messages, uint32_t count);

/// One end of the channel.
struct ChannelEndpoint {
  uint32_t address;  ///< IPv4 address, network byte order
  uint16_t port;     ///< host byte order
  uint16_t reserved;
};

/// What a channel server is started with. Valid only during the starting call.
struct ChannelConfig {
  ChannelEndpoint local;
  ChannelEndpoint peer;
  uint32_t parameter;  ///< the module passes 25
  uint32_t epollId;    ///< event loop on which messages are received
  ReceiveCallback onReceive;
  uint8_t reserved[56];  ///< zero
};
static_assert(sizeof(ChannelEndpoint) == 8);
static_assert(offsetof(ChannelEndpoint, port) == 4);
static_assert(sizeof(ChannelConfig) == 88);
static_assert(offsetof(ChannelConfig, local) == 0);
static_assert(offsetof(ChannelConfig, peer) == 8);
static_assert(offsetof(ChannelConfig, parameter) == 16);
static_assert(offsetof(ChannelConfig, epollId) == 20);
static_assert(offsetof(ChannelConfig, onReceive) == 24);
static_assert(offsetof(ChannelConfig, reserved) == 32);

extern "C" {

/// Starts a channel server named `name` (copied) and stores its handle, never 0, in `handle`. The module passes 0 for
/// `flags`. From then on the receive callback runs on the thread of `config->epollId`, possibly before this call
/// returns. Returns 0 on success; on failure `handle` is not written.
uint32_t WUX_CHAN_UCServer(const char* name, uint32_t flags, const ChannelConfig* config, uint64_t* handle);

/// Stops the server and closes its connections. No receive callback runs after it has returned.
/// Returns 0 on success; non-zero when `handle` names no server.
uint32_t WUX_CHAN_UCServerDestory(uint64_t handle);

}  // extern "C"
}  // namespace tarq
