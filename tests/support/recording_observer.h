// Keeps what it is told and frees it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/task_event.h"

namespace Tarnlo::test {

struct RecordedEvent {
  std::int32_t code = 0;
  std::int32_t task_id = 0;
  std::int32_t type = 0;
  std::int64_t number = 0;  // the payload where it is one
  std::wstring text;        // type 0
  TaskProgress progress{};  // type 3
};

// Threads: any.
class RecordingObserver : public IObserver {
 public:
  void Notify(TaskEvent* event, std::intptr_t message_parameter) override {
    RecordedEvent record{event->code, event->task_id, event->type, 0, {}, {}};
    const auto address = static_cast<std::intptr_t>(event->payload);
    if (event->type == kEventRemoteName) {
      record.text = reinterpret_cast<const wchar_t*>(address);
    } else if (event->type == kEventProgress) {
      record.progress = *reinterpret_cast<const TaskProgress*>(address);
    } else {
      record.number = event->payload;
    }
    FreeEvent(event);
    const std::lock_guard guard(m_mutex);
    m_events.push_back(record);
    if (message_parameter != 0) m_strange_parameter = true;
  }

  [[nodiscard]] std::vector<RecordedEvent> Events() const {
    const std::lock_guard guard(m_mutex);
    return m_events;
  }
  [[nodiscard]] std::vector<RecordedEvent> EventsOf(std::int32_t type) const {
    std::vector<RecordedEvent> events = Events();
    std::erase_if(events, [type](const RecordedEvent& event) { return event.type != type; });
    return events;
  }
  [[nodiscard]] std::vector<std::int64_t> NumbersOf(std::int32_t type) const {
    std::vector<std::int64_t> numbers;
    for (const RecordedEvent& event : EventsOf(type)) numbers.push_back(event.number);
    return numbers;
  }
  // Whether a message parameter other than 0 was ever passed.
  [[nodiscard]] bool SawStrangeParameter() const {
    const std::lock_guard guard(m_mutex);
    return m_strange_parameter;
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<RecordedEvent> m_events;
  bool m_strange_parameter = false;
};

}  // namespace Tarnlo::test
