// Objects that live as long as the module.
#pragma once

#include <atomic>
#include <new>

namespace Tarnlo {

// What all process objects have in common: a list of them, the newest first.
//
// Threads: objects may be made on any thread; `DestroyAll` only when no other thread uses any.
class ProcessObjectBase {
 public:
  ProcessObjectBase(const ProcessObjectBase&) = delete;
  ProcessObjectBase& operator=(const ProcessObjectBase&) = delete;

  // Only for a module that is unloaded while the process goes on.
  static void DestroyAll() {
    ProcessObjectBase* object = s_newest.exchange(nullptr);
    for (; object != nullptr; object = object->m_older) object->m_destroy(*object);
  }

 protected:
  using Destroyer = void (*)(ProcessObjectBase& object);
  explicit ProcessObjectBase(Destroyer destroy) : m_destroy(destroy) {}
  ~ProcessObjectBase() = default;
  // Once the object itself is there.
  void Register() {
    m_older = s_newest.load();
    while (!s_newest.compare_exchange_weak(m_older, this)) {
    }
  }

 private:
  static inline constinit std::atomic<ProcessObjectBase*> s_newest{nullptr};

  const Destroyer m_destroy;
  ProcessObjectBase* m_older = nullptr;
};

// An object that is never destroyed by the process's end: at that moment its locks may be held, and
// its memory half changed, by threads that are already gone. Nothing is lost by it, since the
// system takes everything back.
template <typename T>
class ProcessObject : public ProcessObjectBase {
 public:
  ProcessObject() : ProcessObjectBase(&Destroy), m_object(*new (m_storage) T()) { Register(); }
  T& operator*() { return m_object; }
  T* operator->() { return &m_object; }

 private:
  static void Destroy(ProcessObjectBase& object) {
    static_cast<ProcessObject&>(object).m_object.~T();
  }

  alignas(T) unsigned char m_storage[sizeof(T)]{};
  T& m_object;
};

}  // namespace Tarnlo
