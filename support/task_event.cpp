#include "support/task_event.h"

#include <memory>
#include <string_view>

namespace Tarnlo {
namespace {

template <typename T>
std::int64_t PointerToPayload(T* pointer) {
  return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(pointer));
}

template <typename T>
T* PayloadToPointer(std::int64_t payload) {
  // The record carries pointers as numbers. NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<T*>(static_cast<std::intptr_t>(payload));
}

std::unique_ptr<TaskEvent> MakeEvent(std::int32_t code, std::int32_t task_id, TaskEventType type,
                                     std::int64_t payload) {
  return std::make_unique<TaskEvent>(TaskEvent{code, task_id, type, payload});
}

}  // namespace

void SendEvent(IObserver* observer, std::int32_t code, std::int32_t task_id, TaskEventType type,
               std::int64_t value) {
  if (observer == nullptr) return;
  observer->Notify(MakeEvent(code, task_id, type, value).release(), 0);
}

void SendTextEvent(IObserver* observer, std::int32_t task_id, TaskEventType type,
                   const wchar_t* text) {
  if (observer == nullptr) return;
  const std::wstring_view view = text == nullptr ? std::wstring_view() : std::wstring_view(text);
  auto copy = std::make_unique<wchar_t[]>(view.size() + 1);
  view.copy(copy.get(), view.size());
  auto event = MakeEvent(kWholeJob, task_id, type, PointerToPayload(copy.get()));
  static_cast<void>(copy.release());  // the event's from now on
  observer->Notify(event.release(), 0);
}

void SendProgressEvent(IObserver* observer, std::int32_t task_id, const TaskProgress& progress) {
  if (observer == nullptr) return;
  auto copy = std::make_unique<TaskProgress>(progress);
  auto event = MakeEvent(kWholeJob, task_id, kEventProgress, PointerToPayload(copy.get()));
  static_cast<void>(copy.release());  // the event's from now on
  observer->Notify(event.release(), 0);
}

void FreeEvent(TaskEvent* event) {
  const std::unique_ptr<TaskEvent> owner(event);
  if (!owner) return;
  if (owner->type == kEventRemoteName) {
    const std::unique_ptr<wchar_t[]> text(PayloadToPointer<wchar_t>(owner->payload));
  } else if (owner->type == kEventProgress) {
    const std::unique_ptr<TaskProgress> progress(PayloadToPointer<TaskProgress>(owner->payload));
  }
}

}  // namespace Tarnlo
