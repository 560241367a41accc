// TCP calls whose types or names differ between systems, for test_socket.cpp alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/os/handle.h"

namespace Tarnlo::test {

using NativeSocket = os::SocketHandle::Value;

// None of these sockets blocks. Not valid when the system refuses.
os::SocketHandle ListenAt(const std::string& address, std::uint16_t port, int backlog);
os::SocketHandle AcceptFrom(NativeSocket listener);
std::uint16_t PortOf(NativeSocket listener);  // 0 when it is not valid

// True when it became ready in time.
bool AwaitSocket(NativeSocket socket, bool reading, std::uint32_t milliseconds);
void SetReceiveBufferOf(NativeSocket socket, int bytes);
// Its close will be a reset.
void ResetAtClose(NativeSocket socket);
// As recv has it.
int ReceiveFrom(NativeSocket socket, char* bytes, std::size_t capacity);
// As send has it; 0 when it would block.
int SendTo(NativeSocket socket, const char* bytes, std::size_t count);
void ShutdownSendOf(NativeSocket socket);

}  // namespace Tarnlo::test
