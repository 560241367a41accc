// What TCP calls differ in between systems, for test_socket.cpp alone.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif

#include <cstddef>
#include <cstdint>

namespace Tarnlo::test {

#ifdef _WIN32
using NativeSocket = SOCKET;
#else
using NativeSocket = int;
#endif

// Not blocking from now on.
void SetNonBlocking(NativeSocket socket);
// True when it became ready in time.
bool AwaitSocket(NativeSocket socket, bool reading, std::uint32_t milliseconds);
void SetSocketOption(NativeSocket socket, int name, const void* value, std::size_t size);
// As recv has it.
int ReceiveFrom(NativeSocket socket, char* bytes, std::size_t capacity);
// As send has it; 0 when it would block.
int SendTo(NativeSocket socket, const char* bytes, std::size_t count);
void ShutdownSendOf(NativeSocket socket);

}  // namespace Tarnlo::test
