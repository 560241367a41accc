#include "support/os/thread_slot.h"

#include <pthread.h>

#include <limits>

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kNoSlot = std::numeric_limits<std::uint32_t>::max();

std::uint32_t MakeSlot() {
  pthread_key_t key = 0;
  return pthread_key_create(&key, nullptr) == 0 ? key : kNoSlot;
}

}  // namespace

ThreadSlot::ThreadSlot() : m_index(MakeSlot()) {}

ThreadSlot::~ThreadSlot() {
  if (m_index != kNoSlot) pthread_key_delete(m_index);
}

void* ThreadSlot::Get() const {
  return m_index == kNoSlot ? nullptr : pthread_getspecific(m_index);
}

void ThreadSlot::Set(void* value) {
  if (m_index != kNoSlot) pthread_setspecific(m_index, value);
}

}  // namespace Tarnlo::os
