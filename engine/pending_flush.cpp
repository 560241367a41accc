#include "engine/pending_flush.h"

#include <map>

#include "support/os/file.h"
#include "support/os/lock.h"
#include "support/process_object.h"
#include "support/run_aside.h"

namespace Tarnlo {
namespace {

struct Table {
  os::Lock lock;
  std::map<std::wstring, std::shared_ptr<PendingFlush>> flushes GUARDED_BY(lock);
};

Table& SharedTable() {
  static ProcessObject<Table> table;
  return *table;
}

void Remember(const std::wstring& path, const std::shared_ptr<PendingFlush>& flush) {
  Table& table = SharedTable();
  const os::LockGuard guard(table.lock);
  table.flushes[path] = flush;
}

void Forget(const std::wstring& path, const PendingFlush* flush) {
  Table& table = SharedTable();
  const os::LockGuard guard(table.lock);
  const auto found = table.flushes.find(path);
  if (found != table.flushes.end() && found->second.get() == flush) table.flushes.erase(found);
}

}  // namespace

std::shared_ptr<PendingFlush> PendingFlush::Begin(const std::wstring& path) {
  auto flush = std::make_shared<PendingFlush>();
  Remember(path, flush);
  if (!StartDetached([flush, path] { flush->Run(path); })) {
    Forget(path, flush.get());
    flush->m_done.Set();
  }
  return flush;
}

std::shared_ptr<PendingFlush> PendingFlush::Of(const std::wstring& path) {
  Table& table = SharedTable();
  const os::LockGuard guard(table.lock);
  const auto found = table.flushes.find(path);
  return found == table.flushes.end() ? nullptr : found->second;
}

void PendingFlush::Run(const std::wstring& path) {
  {
    os::File file = os::File::Open(path, os::FileAccess::kReadWrite, os::FileShare::kReadWrite,
                                   os::FileCreation::kOpenExisting);
    if (file.valid()) m_outcome = file.Flush() ? Outcome::kFlushed : Outcome::kRefused;
  }
  Forget(path, this);
  m_done.Set();
}

}  // namespace Tarnlo
