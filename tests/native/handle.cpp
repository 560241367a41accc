#include "support/os/handle.h"

#include <unistd.h>

#include <cerrno>

#include "tests/native/kernel_object.h"

namespace Tarnlo::os {

bool KernelHandleTraits::IsValid(Value value) {
  return value != nullptr;
}

void KernelHandleTraits::Close(Value value) {
  const int error = errno;
  native::ObjectOf<native::KernelObject>(value).DropReference();
  errno = error;
}

void SocketHandleTraits::Close(Value value) {
  close(static_cast<int>(value));
}

}  // namespace Tarnlo::os
