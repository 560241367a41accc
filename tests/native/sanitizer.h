// What a thread sanitizer is told of locks that it cannot recognise as such.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define TARNLO_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TARNLO_THREAD_SANITIZER
#endif
#endif

#ifdef TARNLO_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace Tarnlo::os::native {

enum class LockUse { kExclusive, kShared, kTryShared };

#ifdef TARNLO_THREAD_SANITIZER

inline unsigned NoteFlags(LockUse use) {
  if (use == LockUse::kExclusive) return 0;
  return __tsan_mutex_read_lock | (use == LockUse::kTryShared ? __tsan_mutex_try_lock : 0U);
}

// Around the taking of a lock.
class LockNote {
 public:
  LockNote(void* lock, LockUse use)
      : m_lock(lock), m_flags(NoteFlags(use) | __tsan_mutex_linker_init) {
    __tsan_mutex_pre_lock(m_lock, m_flags);
  }
  ~LockNote() { __tsan_mutex_post_lock(m_lock, m_flags, 0); }
  LockNote(const LockNote&) = delete;
  LockNote& operator=(const LockNote&) = delete;
  // It was not to be had. Always false.
  bool Failed() {
    m_flags |= __tsan_mutex_try_lock_failed;
    return false;
  }

 private:
  void* m_lock;
  unsigned m_flags;
};

// Around the letting go of it.
class UnlockNote {
 public:
  UnlockNote(void* lock, LockUse use)
      : m_lock(lock), m_flags(NoteFlags(use) | __tsan_mutex_linker_init) {
    __tsan_mutex_pre_unlock(m_lock, m_flags);
  }
  ~UnlockNote() { __tsan_mutex_post_unlock(m_lock, m_flags); }
  UnlockNote(const UnlockNote&) = delete;
  UnlockNote& operator=(const UnlockNote&) = delete;

 private:
  void* m_lock;
  unsigned m_flags;
};

#else

class LockNote {
 public:
  LockNote(void* /*lock*/, LockUse /*use*/) {}
  static bool Failed() { return false; }
};
class UnlockNote {
 public:
  UnlockNote(void* /*lock*/, LockUse /*use*/) {}
};

#endif

}  // namespace Tarnlo::os::native
