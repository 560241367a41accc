// What a worker asks of the job that owns it.
#pragma once

namespace Tarnlo {

class IWorkerOwner {
 public:
  IWorkerOwner() = default;
  IWorkerOwner(const IWorkerOwner&) = delete;
  IWorkerOwner& operator=(const IWorkerOwner&) = delete;
  virtual ~IWorkerOwner() = default;
  // Whether the job still reports to its observer. Threads: any; takes the job's own lock.
  [[nodiscard]] virtual bool IsNotifying() const = 0;
};

}  // namespace Tarnlo
