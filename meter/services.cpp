#include "meter/services.h"

#include <netdb.h>
#include <netinet/in.h>

#include <optional>
#include <string_view>

namespace tarq::meter {
namespace {

std::optional<uint8_t> ProtocolNumber(std::string_view name) {
  if (name == "tcp") return IPPROTO_TCP;
  if (name == "udp") return IPPROTO_UDP;
  if (name == "udplite") return IPPROTO_UDPLITE;
  if (name == "sctp") return IPPROTO_SCTP;
  if (name == "dccp") return IPPROTO_DCCP;
  return std::nullopt;
}

uint32_t IndexOf(uint8_t protocol, uint16_t port) { return uint32_t{protocol} << 16 | port; }

}  // namespace

Services::Services() {
  setservent(1);
  while (const servent* entry = getservent()) {
    const uint16_t port = ntohs(static_cast<uint16_t>(entry->s_port));
    const auto protocol = ProtocolNumber(entry->s_proto);
    if (protocol && port != 0) services_.try_emplace(IndexOf(*protocol, port), Service{port, entry->s_name});
  }
  endservent();
}

const Service* Services::Find(const FlowKey& flow) const {
  const Service* service = Find(flow.protocol, flow.destinationPort);
  return service != nullptr ? service : Find(flow.protocol, flow.sourcePort);
}

const Service* Services::Find(uint8_t protocol, uint16_t port) const {
  const auto found = services_.find(IndexOf(protocol, port));
  return found == services_.end() ? nullptr : &found->second;
}

}  // namespace tarq::meter
