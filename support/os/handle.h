// The one owner of a system handle: a value, its invalid value and how to close it.
#pragma once

#include <cstdint>
#include <utility>

namespace Tarnlo::os {

// Move-only. Closes on destruction, on reset and before taking over another handle.
template <typename Traits>
class UniqueHandle {
 public:
  using Value = typename Traits::Value;

  UniqueHandle() = default;
  explicit UniqueHandle(Value value) : m_value(value) {}
  UniqueHandle(UniqueHandle&& other) noexcept : m_value(other.Release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { Reset(); }

  [[nodiscard]] bool valid() const { return Traits::IsValid(m_value); }
  [[nodiscard]] Value get() const { return m_value; }
  [[nodiscard]] Value Release() { return std::exchange(m_value, Traits::Invalid()); }
  void Reset(Value value = Traits::Invalid()) {
    const Value old = std::exchange(m_value, value);
    if (Traits::IsValid(old)) Traits::Close(old);
  }

 private:
  Value m_value = Traits::Invalid();
};

// Events, threads, mutexes and files.
struct KernelHandleTraits {
  using Value = void*;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value value);
  static void Close(Value value);  // keeps the calling thread's last error
};
using KernelHandle = UniqueHandle<KernelHandleTraits>;

struct SocketHandleTraits {
  using Value = std::uintptr_t;
  static constexpr Value Invalid() { return ~Value{0}; }
  static bool IsValid(Value value) { return value != Invalid(); }
  static void Close(Value value);
};
using SocketHandle = UniqueHandle<SocketHandleTraits>;

}  // namespace Tarnlo::os
