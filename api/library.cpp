#include "api/library.h"

#include <atomic>
#include <memory>

#include "support/os/module.h"
#include "support/process_object.h"
#include "support/simple_log.h"

namespace Tarnlo {
namespace {

constinit std::atomic<DownloaderManager*> g_manager{nullptr};

}  // namespace

DownloaderManager* StartLibrary() {
  if (DownloaderManager* manager = StartedLibrary()) return manager;
  if (!os::PinThisModule()) return nullptr;
  simpleLog::Start();
  static ProcessObject<Session> session;
  g_manager.store(&session->manager(), std::memory_order_release);
  return StartedLibrary();
}

DownloaderManager* StartedLibrary() {
  return g_manager.load(std::memory_order_acquire);
}

DownloaderManager* StartSessionAside() {
  if (!os::PinThisModule()) return nullptr;
  auto session = std::make_unique<Session>();
  return &session.release()->manager();  // nobody's from now on: it is never destroyed
}

}  // namespace Tarnlo
