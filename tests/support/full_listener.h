// An address where connections hang: nobody accepts, and the queue is full.
#pragma once

#include <string>
#include <vector>

#include "support/os/net.h"
#include "tests/support/test_socket.h"

namespace Tarnlo::test {

class FullListener {
 public:
  FullListener() {
    for (int i = 0; i < kFillers; ++i) {
      m_fillers.push_back(os::Socket::OpenTcp());
      m_fillers.back().SetBlocking(false);
      m_fillers.back().StartConnect(AddressOf("127.0.0.1"), port());
    }
    // Once one of them hangs, so does everyone behind it.
    for (const os::Socket& filler : m_fillers) filler.WaitWritable(100);
  }

  [[nodiscard]] std::uint16_t port() const { return m_listener.port(); }
  [[nodiscard]] std::wstring Url() const {
    return std::wstring(L"http://127.0.0.1:").append(std::to_wstring(port())).append(L"/f");
  }

 private:
  static constexpr int kFillers = 4;
  TestListener m_listener{"127.0.0.1", 0, 0};
  std::vector<os::Socket> m_fillers;
};

}  // namespace Tarnlo::test
