// Files whose data is on its way to the disk.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "support/os/event.h"

namespace Tarnlo {

// One flush, made on a thread of its own, since a disk may take its time and nobody must wait for
// it who does not want to.
//
// Threads: any. Lifetime: shared with the thread that flushes.
class PendingFlush {
 public:
  enum class Outcome {
    kNone,     // not over yet; or there was no thread, or the file could not be opened
    kFlushed,  // all that was written before is on the disk
    kRefused,  // the disk said no
  };

  // Begins one. It keeps the file open for writing until `done`.
  static std::shared_ptr<PendingFlush> Begin(const std::wstring& path);
  // The last one begun for that file by anyone in this process; null when none is under way.
  static std::shared_ptr<PendingFlush> Of(const std::wstring& path);

  // Set when the file is closed again.
  [[nodiscard]] const os::Event& done() const { return m_done; }
  [[nodiscard]] Outcome outcome() const { return m_outcome; }

 private:
  class End;

  void Run(const std::wstring& path);

  os::Event m_done;
  std::atomic<Outcome> m_outcome{Outcome::kNone};
};

}  // namespace Tarnlo
