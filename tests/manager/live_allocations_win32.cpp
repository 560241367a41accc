#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "tests/manager/live_allocations.h"

namespace {

constinit std::atomic<long long> g_live{0};

void* Allocate(std::size_t size) {
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  ++g_live;
  return memory;
}

void Free(void* memory) {
  if (memory == nullptr) return;
  --g_live;
  std::free(memory);
}

}  // namespace

long long Tarnlo::test::LiveAllocations() {
  return g_live;
}

// Those with an alignment or without exceptions end here too, or keep the library's own pair.
void* operator new(std::size_t size) {
  return Allocate(size);
}
void* operator new[](std::size_t size) {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  Free(memory);
}
void operator delete[](void* memory) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  Free(memory);
}
