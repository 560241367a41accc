#include "engine/pending_flush.h"

#include <map>
#include <utility>

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

// However a flush ends, and when it cannot begin: nobody waits for it any longer.
class PendingFlush::End {
 public:
  End(std::wstring path, std::shared_ptr<PendingFlush> flush)
      : m_path(std::move(path)), m_flush(std::move(flush)) {}
  End(const End&) = delete;
  End& operator=(const End&) = delete;
  ~End() {
    Forget(m_path, m_flush.get());
    m_flush->m_done.Set();
  }
  void Run() { m_flush->Run(m_path); }

 private:
  const std::wstring m_path;
  const std::shared_ptr<PendingFlush> m_flush;
};

std::shared_ptr<PendingFlush> PendingFlush::Begin(const std::wstring& path) {
  auto flush = std::make_shared<PendingFlush>();
  auto end = std::make_shared<End>(path, flush);
  Remember(path, flush);
  // No thread is known by the outcome that stays as it is.
  static_cast<void>(StartDetached([end = std::move(end)] { end->Run(); }));
  return flush;
}

std::shared_ptr<PendingFlush> PendingFlush::Of(const std::wstring& path) {
  Table& table = SharedTable();
  const os::LockGuard guard(table.lock);
  const auto found = table.flushes.find(path);
  return found == table.flushes.end() ? nullptr : found->second;
}

void PendingFlush::Run(const std::wstring& path) {
  os::File file = os::File::Open(path, os::FileAccess::kReadWrite, os::FileShare::kReadWrite,
                                 os::FileCreation::kOpenExisting);
  if (file.valid()) m_outcome = file.Flush() ? Outcome::kFlushed : Outcome::kRefused;
}

}  // namespace Tarnlo
