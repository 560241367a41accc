// What jobs and their workers report, and to whom.
#pragma once

#include <cstdint>

namespace Tarnlo {

// The kinds of a TaskEvent, with what its payload then holds.
enum TaskEventType : std::int32_t {
  kEventRemoteName = 0,     // wchar_t*, zero-terminated, made by new[]: the receiver's
  kEventContentLength = 1,  // the length
  kEventFinished = 2,       // the result, an NsResultEnum, in the low 32 bits
  kEventProgress = 3,       // TaskProgress*, made by new: the receiver's
  kEventRangeLength = 4,    // the new length of a worker's range
  kEventRangeProgress = 5,  // bytes done of a worker's range
  kEventBufferedBytes = 6,  // bytes a worker has received and not yet written
  kEventStarted = 7,        // 0
};

inline constexpr std::int32_t kWholeJob = -1;

// One report, 24 bytes. Made by new; whoever receives it frees it with delete, after its payload.
struct TaskEvent {
  std::int32_t code;  // the worker's index, or kWholeJob
  std::int32_t task_id;
  std::int32_t type;     // a TaskEventType
  std::int64_t payload;  // a number or a pointer, as the type says
};
static_assert(sizeof(TaskEvent) == 24);

struct TaskProgress {
  std::int32_t task_id;
  std::int64_t total;       // bytes
  std::int64_t downloaded;  // bytes
  std::uint32_t speed;      // bytes per second
};

// Receives reports. Threads: called on the jobs' and workers' threads, several at once.
class IObserver {
 public:
  IObserver() = default;
  IObserver(const IObserver&) = delete;
  IObserver& operator=(const IObserver&) = delete;
  virtual ~IObserver() = default;
  // Takes over the event and its payload. Senders pass 0 as the message parameter.
  virtual void Notify(TaskEvent* event, std::intptr_t message_parameter) = 0;
};

// Hand a report to the observer; a null observer receives nothing, and nothing is allocated for it.
void SendEvent(IObserver* observer, std::int32_t code, std::int32_t task_id, TaskEventType type,
               std::int64_t value);
void SendTextEvent(IObserver* observer, std::int32_t task_id, TaskEventType type,
                   const wchar_t* text);
void SendProgressEvent(IObserver* observer, std::int32_t task_id, const TaskProgress& progress);

// Frees an event that nobody will receive, with its payload.
void FreeEvent(TaskEvent* event);

}  // namespace Tarnlo
