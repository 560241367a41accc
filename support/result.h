// How a download job ended.
#pragma once

#include <cstdint>

namespace Tarnlo {

// 0 is success and never reaches a failure callback. The numbers are part of the interface.
enum NsResultEnum : std::int32_t {
  kResultSuccess = 0,
  kResultAlreadyComplete = 1,    // inside a job only: the target is there and valid
  kResultTooFewBytes = 3,        // the connections ended before the whole file had arrived
  kResultNoRemoteInfo = 5,       // the server did not say what it has, or could not be reached
  kResultAssignmentFailed = 6,   // the connections could not be set to work
  kResultFileFailed = 9,         // the file could not be created, opened, cut or renamed
  kResultNoSpace = 10,           // the temporary file could not be extended to its size
  kResultMd5Mismatch = 11,       // the finished file matches no expected MD5; it is deleted
  kResultTooManyBytes = 12,      // more bytes were counted than the file has
  kResultStopped = 13,           // stopped while it ran
  kResultRangesIncomplete = 14,  // the byte count is right, but a range is not complete
  kResultWaitFailed = 15,        // waiting for the connections failed
};

}  // namespace Tarnlo
