// The calls to the system that tests can make fail.
#pragma once

namespace Tarnlo::os {

// In the words of the seam.
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

}  // namespace Tarnlo::os
