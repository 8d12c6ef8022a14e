// Names of applications: the services registered for ports in the system's services database.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "meter/packet.h"

namespace tarq::meter {

/// An application: the registered port and its service's name.
struct Service {
  uint16_t port;
  std::string name;
};

/// The services database as it was when this was made. Afterwards any thread may look up.
class Services {
 public:
  /// Reads the system's database (usually /etc/services). A system without one knows no service.
  Services();

  /// The service of the destination port, else of the source port, with the flow's protocol; null when neither is
  /// registered. Valid as long as this object.
  const Service* Find(const FlowKey& flow) const;

 private:
  const Service* Find(uint8_t protocol, uint16_t port) const;

  std::unordered_map<uint32_t, Service> services_;
};

}  // namespace tarq::meter
