#include "manager/operation_gate.h"

#include <cstdint>

#include "engine/download_manager.h"
#include "support/os/wait.h"
#include "transfer/current_job.h"

namespace Tarnlo {
namespace {

// How soon a waiting thread of a job notices that the job is being stopped.
constexpr std::uint32_t kLookMs = 20;

}  // namespace

bool CallerIsBeingStopped() {
  const auto* job = dynamic_cast<const CDownloadManager*>(CurrentJob());
  return job != nullptr && (job->IsStopping() || CurrentThreadIsStopped());
}

bool OperationGate::WaitForTurn() {
  if (CurrentJob() == nullptr) return m_mutex.Acquire(os::kForever);
  while (!m_mutex.Acquire(kLookMs)) {
    if (CallerIsBeingStopped()) return false;
  }
  return true;
}

bool OperationGate::Enter() {
  if (!WaitForTurn()) return false;
  m_idle = false;
  return true;
}

void OperationGate::Leave() {
  m_idle = true;
  m_mutex.Release();
}

}  // namespace Tarnlo
