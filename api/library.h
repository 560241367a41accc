// The library's one manager and one bridge, from the first task to the end of the process.
#pragma once

#include "api/callback_bridge.h"
#include "manager/downloader_manager.h"

namespace Tarnlo {

// A manager whose reports go to the host's callbacks. Never destroyed: threads may be running in it
// when the process ends, and the module they run in stays loaded.
class Session {
 public:
  Session() { m_manager.SetCallBack(&m_bridge); }
  DownloaderManager& manager() { return m_manager; }

 private:
  CBmgr m_bridge;  // outlives the manager
  DownloaderManager m_manager;
};

// Starts the library unless it is started: pins the module, starts the log, makes the session.
// Threads: any, at once; all come back to a whole library. Null when the module cannot be pinned.
DownloaderManager* StartLibrary();

// Null until the library is started, then whole.
DownloaderManager* StartedLibrary();

// A manager beside the library's, without its log. Null when the module cannot be pinned.
DownloaderManager* StartSessionAside();

}  // namespace Tarnlo
