// The system's sockets, started for as long as a thread needs them.
#pragma once

#include "support/os/net.h"

namespace Tarnlo {

// Lives on the thread that resolves or asks: such a thread may outlast everyone who waited for it.
class NetworkUse {
 public:
  NetworkUse() : m_started(os::StartNetwork()) {}
  NetworkUse(const NetworkUse&) = delete;
  NetworkUse& operator=(const NetworkUse&) = delete;
  ~NetworkUse() {
    if (m_started) os::StopNetwork();
  }

 private:
  const bool m_started;
};

}  // namespace Tarnlo
