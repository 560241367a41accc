// Where tests make a call to the system fail. The files of the seam include this, and the tests
// that decide which call it is.
#pragma once

#include <cstdint>

namespace Tarnlo::os {

// The calls that can be refused, in the words of the seam.
enum class Call {
  kBuffer,
  kEvent,
  kThread,
  kWait,
  kOpenFile,
  kFileSize,
  kSeek,
  kRead,
  kWrite,
  kWriteWhole,  // a part is written, as on a full disk
  kSetEnd,
  kFlush,
  kRemoveFile,
  kMarkFile,
  kRename,
  kStartNetwork,
  kResolve,
  kSocket,
  kSetBlocking,
  kConnect,
  kWaitReadable,
  kWaitWritable,
  kSend,
  kReceive,
  kHead,
};
inline constexpr int kCalls = static_cast<int>(Call::kHead) + 1;

#ifdef TARNLO_FAULTS
// True when this call is to fail.
bool Fails(Call call);
// How long a wait for a single event is to last instead.
std::uint32_t ScaledWait(std::uint32_t milliseconds);
#else
// In the product no call is made to fail, and nothing of this is left.
constexpr bool Fails(Call /*call*/) {
  return false;
}
constexpr std::uint32_t ScaledWait(std::uint32_t milliseconds) {
  return milliseconds;
}
#endif

}  // namespace Tarnlo::os
